// Note names, note and knob arguments, and the pattern note byte of `vrok render`.
#include <gtest/gtest.h>

#include "app/note_arguments.h"
#include "machine/machine.h"

using namespace app;

namespace {

TEST(AppNoteNames, NamesAndNumbers) {
    const std::pair<const char*, int> good[] = {{"A4", 69}, {"C4", 60},  {"a#3", 58}, {"Bb2", 46},
                                                {"C-1", 0}, {"G9", 127}, {"0", 0},    {"127", 127}};
    for (auto [text, note] : good) EXPECT_EQ(ParseNoteName(text), note) << text;
    for (const char* bad : {"", "H4", "A", "A#", "Ab+4", "G#9", "Cb-1", "128", "-3", "A4x", "4A", "C 4", "A10"})
        EXPECT_EQ(ParseNoteName(bad), std::nullopt) << bad;
}

TEST(AppNoteArgument, FormsAndErrors) {
    const NoteArgument full = ParseNoteArgument("--play", "Bb2:90@1.25-2.5");
    EXPECT_TRUE(full.note == 46 && full.velocity == 90 && full.start == 1.25 && full.end == 2.5);
    const NoteArgument open = ParseNoteArgument("--play", "C-1@0");
    EXPECT_TRUE(open.note == 0 && !open.velocity && open.start == 0.0 && !open.end) << "negative octave, open end";
    // Errors name the option and the text.
    EXPECT_EQ(ParseNoteArgument("--play", "A4@.5-2.").end, 2.0);
    // Times are plain decimals: no exponent to split at its minus, no hex, no sign, no inf.
    for (const char* text : {"A4", "A4@", "H4@0", "A4@x", "A4@1-0.5", "A4@1-1", "A4:@0", "A4:loud@0", "A4@0@1", "A4@-1",
                             "A4@1e-3", "A4@0x10", "A4@+1", "A4@inf", "A4@1..2", "A4@.", "A4@ 1", "A4@1-2-3"}) {
        try {
            ParseNoteArgument("--track", text);
            ADD_FAILURE() << text << " was accepted";
        } catch (const UsageError& e) {
            const std::string what = e.what();
            EXPECT_TRUE(what.find("--track") != std::string::npos && what.find(text) != std::string::npos) << what;
        }
    }
}

TEST(AppKnobArgument, RangeOfKnobAndValue) {
    EXPECT_EQ(ParseKnobArgument("1=0"), std::make_pair(0, 0));
    EXPECT_EQ(ParseKnobArgument("8=128"), std::make_pair(7, 128));
    for (const char* bad : {"0=5", "9=5", "3=129", "3=-1", "3", "=4", "3=", "x=1"})
        EXPECT_THROW(ParseKnobArgument(bad), UsageError) << bad;
}

TEST(AppControlArgument, ControllerAndPressureRanges) {
    const ControlArgument wheel = ParseControlArgument("1=127@0.5");
    EXPECT_TRUE(wheel.controller == 1 && wheel.value == 127 && wheel.seconds == 0.5);
    const ControlArgument pressure = ParsePressureArgument("90@2");
    EXPECT_TRUE(pressure.controller == -1 && pressure.value == 90 && pressure.seconds == 2.0);
    for (const char* bad : {"128=1@0", "-1=1@0", "1=128@0", "1=-1@0", "1=5", "1@0", "=5@0", "1=5@x", "1@0=5"})
        EXPECT_THROW(ParseControlArgument(bad), UsageError) << bad;
    for (const char* bad : {"128@0", "-1@0", "5", "@1", "5@x"}) EXPECT_THROW(ParsePressureArgument(bad), UsageError) << bad;
}

TEST(AppTrackerNote, EveryEncodableNoteLandsWhereTheMidiPathDoes) {
    for (int midi = 0; midi < 128; ++midi) {
        const std::optional<int> byte = EncodeTrackerNote(midi);
        if (midi < 5 || midi > 124) {
            EXPECT_EQ(byte, std::nullopt) << midi;
            continue;
        }
        ASSERT_TRUE(byte) << midi;
        EXPECT_TRUE(*byte >= 0x01 && *byte <= 0x9C && (*byte & 15) >= 1 && (*byte & 15) <= 12)
            << midi << ": semitone nibbles run 1..12";
        EXPECT_EQ(ConvertNoteByte(uint8_t(*byte)), midi + 1) << midi;
    }
}

}  // namespace
