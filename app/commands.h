// The subcommands of `vrok`, each returning the exit status: 0 done, 1 a file was bad
// or could not be written, 2 an argument was bad. Messages go to stderr, one line each,
// as "vrok: FILE: what is wrong"; data goes to stdout.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace app {

struct RenderOptions {
    std::string patch;
    std::string output;
    int sampleRate = 44100;
    std::vector<std::string> play;
    std::string midiFile;
    std::vector<std::string> track;
    std::string inputFile;
    std::vector<std::string> knobs;
    std::vector<std::string> controls;    // --cc NUMBER=VALUE@TIME
    std::vector<std::string> pressures;   // --aftertouch VALUE@TIME
    double tempo = 126.0;
    int ticksPerBeat = 4;
    std::string seconds;  // as typed; empty: to the last event, then until silent
    std::string format = "float";
    std::vector<std::string> samples;      // SLOT=FILE, loaded into samplers after the patch
    std::vector<std::string> sampleRoots;  // SLOT=HZ
    std::string scopeDump;                 // where the analysers' captures go, if anywhere
};

int RunRender(const RenderOptions& options);
int RunInfo(const std::string& patch, bool json);
// `samples` and `sampleRoots` as for render: the converted patch carries those samples.
int RunConvert(const std::string& input, const std::string& output, const std::vector<std::string>& samples = {},
               const std::vector<std::string>& sampleRoots = {});

// The commands that play through devices or open a window. `vrok` lists them and hands them
// over to `vrok-live`, which alone links the device, window and font libraries.
struct LiveCommand {
    const char* name;
    const char* summary;
};
inline constexpr LiveCommand kLiveCommands[] = {
    {"play", "Play a patch live through JACK or ALSA; Ctrl-C stops"},
    {"devices", "List audio devices and MIDI ports for vrok play"},
    {"gallery", "Open a window with every toolkit widget; prints each change"},
    {"edit", "Open the patch editor on a patch (or the default patch)"},
};
// The summary of the live command `name`.
const char* LiveSummary(std::string_view name);
// Replaces this process with `vrok-live` from the running binary's folder, passing `argv` on.
// Returns only if that fails, with the exit status after saying why.
int HandOverToLive(char** argv);

// Prints "vrok: " before each line of `message` on stderr.
void PrintError(const std::string& message);

}  // namespace app
