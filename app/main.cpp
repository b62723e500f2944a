// The `vrok` command: renders, lists and converts patches without a host or a display. The
// commands that play live or open a window run in `vrok-studio` (app/studio_main.cpp).
// Argument parsing only; the subcommands live in app/commands.cpp.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app/audio_file.h"
#include "app/commands.h"
#include "app/parse_arguments.h"
#include "app/demo.h"

int main(int argc, char** argv) {
    if (argc > 1)
        for (const app::StudioCommand& command : app::kStudioCommands)
            if (std::strcmp(argv[1], command.name) == 0) return app::HandOverToStudio(argv);

    CLI::App app{"Vrok: render modular synthesizer patches to audio files"};
    app.require_subcommand(1);

    app::RenderOptions render;
    CLI::App* renderCommand = app.add_subcommand("render", "Render a .vrkx or .vrk patch to a WAV file");
    renderCommand->add_option("patch", render.patch, "Patch file (.vrkx or .vrk)")->required();
    renderCommand->add_option("-o,--output", render.output, "Output WAV file")->required();
    renderCommand->add_option("--rate", render.sampleRate, "Sample rate in Hz")
        ->check(CLI::Range(8000, 192000))
        ->capture_default_str();
    renderCommand->add_option(
        "--play", render.play,
        "NOTE[:VELOCITY]@START[-END]: a MIDI note (number or name such as C4, A#3, Bb2; "
        "A4 = 69), velocity 1..127 (127), times in seconds; repeatable");
    renderCommand->add_option("--midi", render.midiFile, "Standard MIDI file whose notes are played");
    renderCommand->add_option("--track", render.track,
                              "NOTE[:VELOCITY]@START[-END]: a pattern note played through the host's tracks, "
                              "velocity 0..128; repeatable");
    renderCommand->add_option("--input", render.inputFile,
                              "Mono or stereo sound file fed to the input blocks");
    renderCommand->add_option("--knob", render.knobs,
                              "N=VALUE: host knob N (1..8) at VALUE (0..128); repeatable");
    renderCommand->add_option("--cc", render.controls,
                              "NUMBER=VALUE@TIME: MIDI controller (1 is the mod wheel) at VALUE (0..127); repeatable");
    renderCommand->add_option("--aftertouch", render.pressures, "VALUE@TIME: channel aftertouch (0..127); repeatable");
    renderCommand->add_option("--tempo", render.tempo, "Host tempo in beats per minute")
        ->check(CLI::Range(1.0, 1000.0))
        ->capture_default_str();
    renderCommand->add_option("--ticks-per-beat", render.ticksPerBeat, "Host ticks per beat")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    renderCommand->add_option("--seconds", render.seconds,
                              "Length, at most 3600; default: to the last event, then until silent");
    renderCommand->add_option("--format", render.format, "Sample format: float, pcm16 or pcm24")
        ->check(CLI::IsMember({"float", "pcm16", "pcm24"}))
        ->capture_default_str();

    renderCommand->add_option("--sample", render.samples,
                              "SLOT=FILE: load a .wav, .flac or .ogg file into the sampler at SLOT (see vrok "
                              "info); repeatable");
    renderCommand->add_option("--sample-root", render.sampleRoots,
                              "SLOT=HZ: the frequency at which that sampler's sample sounds as recorded (440)");
    renderCommand->add_option("--scope-dump", render.scopeDump,
                              "Write what the patch's analysers captured by the end to this JSON file");

    std::string infoPatch;
    bool infoJson = false;
    CLI::App* infoCommand =
        app.add_subcommand("info", "List the blocks, wires and global settings of a patch");
    infoCommand->add_option("patch", infoPatch, "Patch file (.vrkx or .vrk)")->required();
    infoCommand->add_flag("--json", infoJson, "Print one JSON document");

    std::string convertIn, convertOut;
    CLI::App* convertCommand =
        app.add_subcommand("convert", "Load a .vrkx or .vrk patch and write it as .vrkx");
    convertCommand->add_option("input", convertIn, "Patch file (.vrkx or .vrk)")->required();
    convertCommand->add_option("output", convertOut, "Output .vrkx file")->required();
    std::vector<std::string> convertSamples, convertRoots;
    convertCommand->add_option("--sample", convertSamples, "SLOT=FILE: embed a sound file in the sampler at SLOT");
    convertCommand->add_option("--sample-root", convertRoots, "SLOT=HZ: the root of that sampler's sample");

    std::string demoOut = "vrok-demo.wav";
    int demoRate = 44100;
    CLI::App* demo = app.add_subcommand("demo", "Render a built-in chord (4 seconds) to a WAV file");
    demo->add_option("-o,--output", demoOut, "Output WAV file")->capture_default_str();
    demo->add_option("--rate", demoRate, "Sample rate in Hz")
        ->check(CLI::Range(8000, 192000))
        ->capture_default_str();

    // Listed here for --help; main hands them to vrok-studio before parsing.
    for (const app::StudioCommand& command : app::kStudioCommands)
        app.add_subcommand(command.name, command.summary)->allow_extras();

    if (const std::optional<int> stop = app::ParseArguments(app, argc, argv)) return *stop;

    if (*renderCommand) {
        return app::RunRender(render);
    }
    if (*infoCommand) return app::RunInfo(infoPatch, infoJson);
    if (*convertCommand) return app::RunConvert(convertIn, convertOut, convertSamples, convertRoots);
    if (*demo) {
        WriteResult result =
            WriteStereoWav(demoOut, RenderDemoChord(4.0f, demoRate), demoRate, SampleFormat::Float);
        if (!result.ok) {
            app::PrintError(result.error);
            return 1;
        }
        std::printf("wrote %s (4 s, %d Hz, stereo float)\n", demoOut.c_str(), demoRate);
    }
    return 0;
}
