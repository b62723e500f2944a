// `vrok-studio`: the commands that play through devices, open a window or lay out the manual
// (play, devices, gallery, edit, manual). `vrok` hands these over to it with exec, so a
// render never loads JACK, ALSA, PulseAudio, X11 or the fonts and starts in half the time.
// Argument parsing only; the commands live in app/live, app/gallery, app/edit and app/manual.
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "app/commands.h"
#include "app/parse_arguments.h"
#include "app/edit/edit.h"
#include "app/gallery/gallery.h"
#include "app/live/play.h"
#include "app/manual/manual_command.h"

namespace {

// The device and MIDI options `play` and `edit` share; the caller may ask which were given.
std::vector<CLI::Option*> AddLiveOptions(CLI::App& command, live::LiveOptions& live) {
    std::vector<CLI::Option*> options;
    options.push_back(command.add_option("--audio", live.audio, "Audio back end: jack or alsa")
                          ->check(CLI::IsMember({"jack", "alsa"}))
                          ->capture_default_str());
    options.push_back(
        command.add_option("--device", live.device, "JACK server name, or ALSA device name (see vrok devices)"));
    options.push_back(command.add_option("--rate", live.sampleRate, "Sample rate in Hz (default: the device's)")
                          ->check(CLI::Range(8000, 192000)));
    options.push_back(
        command.add_option("--buffer", live.bufferFrames, "Frames per buffer (default: the device's; 256 on ALSA)")
            ->check(CLI::Range(16, 8192)));
    options.push_back(
        command.add_option("--midi-in", live.midiIn, "MIDI source to connect, by name (see vrok devices); repeatable"));
    options.push_back(
        command.add_option("--midi-channel", live.midiChannel, "MIDI channel 1..16 to play; 0 takes every channel")
            ->check(CLI::Range(0, 16))
            ->capture_default_str());
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    // Messages and help read as the command the user typed.
    CLI::App app{"Vrok: play patches live, edit them in a window and read the manual", "vrok"};
    app.require_subcommand(1);

    live::PlayOptions play;
    CLI::App* playCommand = app.add_subcommand("play", app::StudioSummary("play"));
    playCommand->add_option("patch", play.patch, "Patch file (.vrkx or .vrk)")->required();
    AddLiveOptions(*playCommand, play.live);
    CLI::App* devicesCommand = app.add_subcommand("devices", app::StudioSummary("devices"));

    app::GalleryOptions gallery;
    CLI::App* galleryCommand = app.add_subcommand("gallery", app::StudioSummary("gallery"));
    galleryCommand->add_option("--screenshot", gallery.screenshot, "Write the window to this PNG file, then exit");
    galleryCommand->add_option("--after", gallery.afterMs, "Milliseconds before the screenshot")
        ->check(CLI::Range(0, 600000))
        ->capture_default_str();

    app::EditOptions edit;
    CLI::App* editCommand = app.add_subcommand("edit", app::StudioSummary("edit"));
    editCommand->add_option("patch", edit.patch, "Patch file (.vrkx or .vrk)");
    // Any of them makes the editor play; without them it is silent, as before.
    const std::vector<CLI::Option*> editLiveOptions = AddLiveOptions(*editCommand, edit.live);
    editCommand->add_option("--screenshot", edit.screenshot, "Write the window to this PNG file, then exit");
    editCommand->add_option("--after", edit.afterMs, "Milliseconds before the screenshot")
        ->check(CLI::Range(0, 600000))
        ->capture_default_str();
    editCommand->add_option("--manual", edit.manualPage,
                            "Open the manual beside the canvas at this article (a name or a block's name)");
    editCommand->add_option("--manual-file", edit.manualFile, "Show this manual XML in place of the built-in one")
        ->check(CLI::ExistingFile);

    std::string manualTopic, manualFile;
    CLI::App* manualCommand = app.add_subcommand("manual", app::StudioSummary("manual"));
    manualCommand->add_option("topic", manualTopic, "Article name, block name or title (any case)");
    manualCommand->add_option("--file", manualFile, "Read this manual XML in place of the built-in one")
        ->check(CLI::ExistingFile);

    if (const std::optional<int> stop = app::ParseArguments(app, argc, argv)) return *stop;

    if (*playCommand) return live::RunPlay(play);
    if (*devicesCommand) return live::RunDevices();
    if (*galleryCommand) return app::RunGallery(gallery);
    if (*manualCommand) return app::RunManual(manualTopic, manualFile);
    for (const CLI::Option* option : editLiveOptions) edit.play = edit.play || option->count() > 0;
    return app::RunEdit(edit);
}
