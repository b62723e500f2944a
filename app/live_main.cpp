// `vrok-live`: the commands that play through devices or open a window (play, devices,
// gallery, edit). `vrok` hands these over to it with exec, so rendering never loads JACK,
// ALSA, PulseAudio, X11 or the fonts: a render starts in about half the time.
// Argument parsing only; the commands live in app/live, app/gallery and app/edit.
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "app/commands.h"
#include "app/edit/edit.h"
#include "app/gallery/gallery.h"
#include "app/live/play.h"

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
    CLI::App app{"Vrok: play patches live and edit them in a window", "vrok"};
    app.require_subcommand(1);

    live::PlayOptions play;
    CLI::App* playCommand = app.add_subcommand("play", app::LiveSummary("play"));
    playCommand->add_option("patch", play.patch, "Patch file (.vrkx or .vrk)")->required();
    AddLiveOptions(*playCommand, play.live);
    CLI::App* devicesCommand = app.add_subcommand("devices", app::LiveSummary("devices"));

    app::GalleryOptions gallery;
    CLI::App* galleryCommand = app.add_subcommand("gallery", app::LiveSummary("gallery"));
    galleryCommand->add_option("--screenshot", gallery.screenshot, "Write the window to this PNG file, then exit");
    galleryCommand->add_option("--after", gallery.afterMs, "Milliseconds before the screenshot")
        ->check(CLI::Range(0, 600000))
        ->capture_default_str();

    app::EditOptions edit;
    CLI::App* editCommand = app.add_subcommand("edit", app::LiveSummary("edit"));
    editCommand->add_option("patch", edit.patch, "Patch file (.vrkx or .vrk)");
    // Any of them makes the editor play; without them it is silent, as before.
    const std::vector<CLI::Option*> editLiveOptions = AddLiveOptions(*editCommand, edit.live);
    editCommand->add_option("--screenshot", edit.screenshot, "Write the window to this PNG file, then exit");
    editCommand->add_option("--after", edit.afterMs, "Milliseconds before the screenshot")
        ->check(CLI::Range(0, 600000))
        ->capture_default_str();

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app::PrintError(std::string(e.what()) + " (see vrok --help)");
        return 2;
    }

    if (*playCommand) return live::RunPlay(play);
    if (*devicesCommand) return live::RunDevices();
    if (*galleryCommand) return app::RunGallery(gallery);
    for (const CLI::Option* option : editLiveOptions) edit.play = edit.play || option->count() > 0;
    return app::RunEdit(edit);
}
