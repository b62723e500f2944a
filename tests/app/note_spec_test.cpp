// Note names, note and knob arguments, and the pattern note byte of `vrok render`.
#include <gtest/gtest.h>

#include "app/note_spec.h"
#include "machine/machine.h"

using namespace app;

namespace {

TEST(AppNoteNames, NamesAndNumbers) {
    EXPECT_EQ(ParseNoteName("A4"), 69);
    EXPECT_EQ(ParseNoteName("C4"), 60);
    EXPECT_EQ(ParseNoteName("a#3"), 58);
    EXPECT_EQ(ParseNoteName("Bb2"), 46);
    EXPECT_EQ(ParseNoteName("C-1"), 0);
    EXPECT_EQ(ParseNoteName("G9"), 127);
    EXPECT_EQ(ParseNoteName("0"), 0);
    EXPECT_EQ(ParseNoteName("127"), 127);
}

TEST(AppNoteNames, RejectsWhatIsNoNote) {
    for (const char* bad : {"", "H4", "A", "A#", "Ab+4", "G#9", "Cb-1", "128", "-3", "A4x", "4A", "C 4", "A10"})
        EXPECT_EQ(ParseNoteName(bad), std::nullopt) << bad;
}

TEST(AppNoteSpec, FullForm) {
    const NoteSpec spec = ParseNoteSpec("--play", "Bb2:90@1.25-2.5");
    EXPECT_EQ(spec.note, 46);
    EXPECT_EQ(spec.velocity, 90);
    EXPECT_DOUBLE_EQ(spec.start, 1.25);
    EXPECT_EQ(spec.end, 2.5);
}

TEST(AppNoteSpec, NegativeOctaveAndOpenEnd) {
    const NoteSpec spec = ParseNoteSpec("--play", "C-1@0");
    EXPECT_EQ(spec.note, 0);
    EXPECT_EQ(spec.velocity, std::nullopt);
    EXPECT_EQ(spec.end, std::nullopt);
}

TEST(AppNoteSpec, ErrorsNameTheOptionAndTheText) {
    const char* bad[] = {"A4", "A4@", "H4@0", "A4@x", "A4@1-0.5", "A4@1-1", "A4:@0", "A4:loud@0", "A4@0@1", "A4@-1"};
    for (const char* text : bad) {
        try {
            ParseNoteSpec("--track", text);
            ADD_FAILURE() << text << " was accepted";
        } catch (const UsageError& e) {
            const std::string what = e.what();
            EXPECT_NE(what.find("--track"), std::string::npos) << what;
            EXPECT_NE(what.find(text), std::string::npos) << what;
        }
    }
}

TEST(AppKnobSpec, RangeOfKnobAndValue) {
    EXPECT_EQ(ParseKnobSpec("1=0"), std::make_pair(0, 0));
    EXPECT_EQ(ParseKnobSpec("8=128"), std::make_pair(7, 128));
    for (const char* bad : {"0=5", "9=5", "3=129", "3=-1", "3", "=4", "3=", "x=1"})
        EXPECT_THROW(ParseKnobSpec(bad), UsageError) << bad;
}

TEST(AppTrackerNote, EveryEncodableNoteLandsWhereTheMidiPathDoes) {
    for (int midi = 0; midi < 128; ++midi) {
        const std::optional<int> byte = EncodeTrackerNote(midi);
        if (midi < 5 || midi > 124) {
            EXPECT_EQ(byte, std::nullopt) << midi;
            continue;
        }
        ASSERT_TRUE(byte) << midi;
        EXPECT_GE(*byte, 0x01);
        EXPECT_LE(*byte, 0x9C);
        EXPECT_GE(*byte & 15, 1) << "semitone nibbles run 1..12";
        EXPECT_LE(*byte & 15, 12);
        EXPECT_EQ(ConvertNoteByte(uint8_t(*byte)), midi + 1) << midi;
    }
}

}  // namespace
