// render, info and convert: argument checks first, then the patch, then the work, so that
// nothing is written unless everything before it succeeded.
#include "app/commands.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/audio_file.h"
#include "app/input_file.h"
#include "app/midi_file.h"
#include "app/note_arguments.h"
#include "app/patch_info.h"
#include "app/patch_load.h"
#include "app/progress.h"
#include "app/render.h"
#include "app/sample_options.h"
#include "app/scope_dump.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine.h"

namespace app {
namespace {

// The engine is built at this rate and makes its master effects there.
constexpr int kEngineStartRate = 44100;
// Ticks shorter than this would leave Work calls of a few frames.
constexpr double kMinSamplesPerTick = 16.0;

void PrintWarnings(const std::vector<std::string>& warnings) {
    for (const std::string& line : warnings) std::fprintf(stderr, "vrok: warning: %s\n", line.c_str());
}

// Runs `body`, turning the two kinds of failure into messages and exit statuses.
template <class Body>
int Guarded(Body body) {
    try {
        return body();
    } catch (const UsageError& e) {
        PrintError(e.what());
        return 2;
    } catch (const InputError& e) {
        PrintError(e.what());
        return 1;
    } catch (const std::bad_alloc&) {
        PrintError("out of memory");
        return 1;
    }
}

SampleFormat ParseFormat(const std::string& text) {
    if (text == "float") return SampleFormat::Float;
    if (text == "pcm16") return SampleFormat::Pcm16;
    if (text == "pcm24") return SampleFormat::Pcm24;
    throw UsageError("--format '" + text + "': expected float, pcm16 or pcm24");
}

// Fails early when the output could never be written, before a long render.
void CheckOutputPlace(const std::string& path) {
    namespace fs = std::filesystem;
    std::error_code code;
    if (fs::is_directory(path, code)) throw InputError(path + ": is a directory");
    const fs::path parent = fs::path(path).parent_path();
    if (!parent.empty() && !fs::is_directory(parent, code))
        throw InputError(path + ": directory " + parent.string() + " does not exist");
}

// The time of the last thing a plan plays.
double LastEventSeconds(const RenderPlan& plan) {
    double last = 0.0;
    for (const MidiNoteEvent& event : plan.midiNotes) last = std::max(last, event.seconds);
    for (const NoteArgument& note : plan.trackNotes) last = std::max({last, note.start, note.end.value_or(0.0)});
    return last;
}

std::string LastEventTooLate(double last) {
    char text[160];
    std::snprintf(text, sizeof text, "events run to %.0f s, past the %.0f s a render may last; give --seconds to render "
                  "the start of it", last, kMaxRenderSeconds);
    return text;
}

RenderPlan MakePlan(const RenderOptions& options) {
    RenderPlan plan;
    if (!options.seconds.empty()) {
        const std::optional<double> seconds = ParseSeconds(options.seconds);
        if (!seconds || *seconds <= 0.0 || *seconds > kMaxRenderSeconds)
            throw UsageError("--seconds '" + options.seconds + "': expected seconds above 0, at most " +
                             std::to_string(int(kMaxRenderSeconds)));
        plan.seconds = seconds;
    }
    for (const std::string& text : options.play) {
        const NoteArgument parsed = ParseNoteArgument("--play", text);
        const int velocity = parsed.velocity.value_or(127);
        if (velocity < 1 || velocity > 127) throw UsageError("--play '" + text + "': velocity must be 1..127");
        plan.midiNotes.push_back({parsed.start, 0, parsed.note, velocity});
        if (parsed.end) plan.midiNotes.push_back({*parsed.end, 0, parsed.note, 0});
    }
    for (const std::string& text : options.track) plan.trackNotes.push_back(ParseNoteArgument("--track", text));
    for (const std::string& text : options.controls) {
        const ControlArgument control = ParseControlArgument(text);
        plan.midiNotes.push_back({control.seconds, 0, control.controller, control.value, MidiEventKind::Control});
    }
    for (const std::string& text : options.pressures) {
        const ControlArgument control = ParsePressureArgument(text);
        plan.midiNotes.push_back({control.seconds, 0, 0, control.value, MidiEventKind::Pressure});
    }
    for (const std::string& text : options.knobs) {
        const auto [knob, value] = ParseKnobArgument(text);
        plan.knobs[size_t(knob)] = value;
    }
    if (!plan.seconds && LastEventSeconds(plan) > kMaxRenderSeconds)
        throw UsageError("--play/--track: " + LastEventTooLate(LastEventSeconds(plan)));
    return plan;
}

}  // namespace

void PrintError(const std::string& message) {
    size_t start = 0;
    while (start <= message.size()) {
        const size_t end = message.find('\n', start);
        std::fprintf(stderr, "vrok: %s\n", message.substr(start, end - start).c_str());
        if (end == std::string::npos) break;
        start = end + 1;
    }
}

const char* LiveSummary(std::string_view name) {
    for (const LiveCommand& command : kLiveCommands)
        if (name == command.name) return command.summary;
    return "";
}

int HandOverToLive(char** argv) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::string live = (error ? std::filesystem::path(".") : self.parent_path()) / "vrok-live";
    execv(live.c_str(), argv);
    PrintError("cannot start " + live + ": " + std::strerror(errno));
    return 127;
}

int RunRender(const RenderOptions& options) {
    return Guarded([&] {
        // Arguments first: exit 2 before any file is touched.
        const SampleFormat format = ParseFormat(options.format);
        RenderPlan plan = MakePlan(options);
        CommandLineHost host(options.sampleRate, options.tempo, options.ticksPerBeat);
        if (host.samplesPerTickExact < kMinSamplesPerTick)
            throw UsageError("--tempo " + std::to_string(options.tempo) + " with --ticks-per-beat " +
                             std::to_string(options.ticksPerBeat) + ": ticks would be shorter than 16 samples");
        BuildSchedule(plan, options.sampleRate, host.samplesPerTickExact);  // checks the track notes

        // Then the files.
        CheckOutputPlace(options.output);
        if (!options.scopeDump.empty()) CheckOutputPlace(options.scopeDump);
        if (!options.midiFile.empty()) {
            for (const MidiNoteEvent& event : ReadMidiFile(options.midiFile)) plan.midiNotes.push_back(event);
            if (!plan.seconds && LastEventSeconds(plan) > kMaxRenderSeconds)
                throw InputError(options.midiFile + ": " + LastEventTooLate(LastEventSeconds(plan)));
        }
        if (!options.inputFile.empty()) plan.input = ReadInputFile(options.inputFile, options.sampleRate);
        const Schedule schedule = BuildSchedule(plan, options.sampleRate, host.samplesPerTickExact);

        mi machine(host);
        machine.Init(nullptr);
        PrintWarnings(LoadPatch(machine, options.patch));
        PrintWarnings(ApplySampleOptions(*machine.document, options.samples, options.sampleRoots));
        if (options.sampleRate != kEngineStartRate) {
            // The machine rebuilds the master effects only when the host's rate changes, and
            // this host starts at its final rate, so they are rebuilt here once.
            machine.document->engine->ChangeSampleRate(float(options.sampleRate));
            machine.document->ReapplyGlobals();
        }

        StereoWavWriter writer;
        std::string error;
        if (!writer.Open(options.output, options.sampleRate, format, &error)) throw InputError(error);
        ProgressBar bar(isatty(STDERR_FILENO) == 1);
        const RenderStats stats = RenderWithMachine(
            machine, host, plan, schedule, [&](const float* samples, int frames) { return writer.Write(samples, frames); },
            [&](long done, long expected) { bar.Update(done, expected, options.sampleRate); });
        bar.Finish();
        const WriteResult result = writer.Finish();
        if (!result.ok) throw InputError(result.error);
        if (!options.scopeDump.empty()) WriteScopeDump(*machine.document, options.scopeDump);

        const double seconds = double(stats.frames) / double(options.sampleRate);
        std::printf("wrote %s: %.2f s, %d Hz, stereo %s\n", options.output.c_str(), seconds, options.sampleRate,
                    options.format.c_str());
        if (result.clippedSamples > 0)
            std::fprintf(stderr, "vrok: warning: %s: %ld samples %s\n", options.output.c_str(), result.clippedSamples,
                         format == SampleFormat::Float ? "outside -1..1 (kept as they are in float)"
                                                       : "clipped to full scale");
        if (stats.stillSounding)
            std::fprintf(stderr, "vrok: warning: %s: still sounding after %.0f s of tail; cut there\n",
                         options.output.c_str(), kMaxTailSeconds);
        return 0;
    });
}

int RunInfo(const std::string& patch, bool json) {
    return Guarded([&] {
        CommandLineHost host(kEngineStartRate, 126.0, 4);
        mi machine(host);
        machine.Init(nullptr);
        PrintWarnings(LoadPatch(machine, patch));
        if (json) {
            nlohmann::json document = PatchToJson(*machine.document);
            document["file"] = patch;
            // File and block names need not be UTF-8; bad bytes show as U+FFFD instead of aborting.
            std::cout << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        } else {
            std::cout << PatchToText(*machine.document, patch);
        }
        return 0;
    });
}

int RunConvert(const std::string& input, const std::string& output, const std::vector<std::string>& samples,
               const std::vector<std::string>& sampleRoots) {
    return Guarded([&] {
        CheckOutputPlace(output);
        CommandLineHost host(kEngineStartRate, 126.0, 4);
        mi machine(host);
        machine.Init(nullptr);
        PrintWarnings(LoadPatch(machine, input));
        PrintWarnings(ApplySampleOptions(*machine.document, samples, sampleRoots));
        std::string error;
        if (!machine.document->SaveFile(output, &error)) throw InputError(error.empty() ? output + ": cannot write" : error);
        std::printf("wrote %s\n", output.c_str());
        return 0;
    });
}

}  // namespace app
