// The `vrok` command: renders patches without a host or a display.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

#include "app/audio_file.h"
#include "app/demo.h"

int main(int argc, char** argv) {
    CLI::App app{"Vrok: render modular synthesizer patches to audio files"};
    app.require_subcommand(1);

    std::string demoOut = "vrok-demo.wav";
    int demoRate = 44100;
    CLI::App* demo = app.add_subcommand("demo", "Render a built-in chord (4 seconds) to a WAV file");
    demo->add_option("-o,--output", demoOut, "Output WAV file")->capture_default_str();
    demo->add_option("--rate", demoRate, "Sample rate in Hz")->check(CLI::Range(8000, 192000))->capture_default_str();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }

    if (*demo) {
        WriteResult result = WriteStereoWav(demoOut, RenderDemoChord(4.0f, demoRate), demoRate, SampleFormat::Float);
        if (!result.ok) {
            std::fprintf(stderr, "vrok: %s\n", result.error.c_str());
            return 1;
        }
        std::printf("wrote %s (4 s, %d Hz, stereo float)\n", demoOut.c_str(), demoRate);
    }
    return 0;
}
