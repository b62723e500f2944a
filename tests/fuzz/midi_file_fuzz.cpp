// Standard MIDI files through the reader `vrok render --midi` uses (our chunk checks, then
// libsmf). A file either reads or is refused with InputError; events come in time order
// with their numbers in range.
#include <cmath>

#include "app/midi_file.h"
#include "app/note_arguments.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietLog();
    const fuzz::MemoryFile file(data, size);
    std::vector<app::MidiNoteEvent> events;
    try {
        events = app::ReadMidiFile(file.Path());
    } catch (const app::InputError&) {
        return 0;
    }
    for (size_t i = 0; i < events.size(); ++i) {
        const app::MidiNoteEvent& e = events[i];
        fuzz::Check(std::isfinite(e.seconds) && e.seconds >= 0.0, "event time is not a time");
        fuzz::Check(i == 0 || events[i - 1].seconds <= e.seconds, "events out of time order");
        fuzz::Check(e.channel >= 0 && e.channel < 16, "channel out of range");
        fuzz::Check(e.note >= 0 && e.note < 128 && e.velocity >= 0 && e.velocity < 128, "byte out of range");
    }
    return 0;
}
