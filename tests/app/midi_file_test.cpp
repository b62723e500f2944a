// MIDI files built byte by byte: note events with their times, channels and releases,
// and files that are no MIDI files.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "app/midi_file.h"
#include "app/note_arguments.h"

using namespace app;

namespace {

std::string WriteTemp(const std::vector<uint8_t>& bytes) {
    const std::string path = (std::filesystem::temp_directory_path() / "app_midi_test.mid").string();
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return path;
}

// Format 0, one track, 96 ticks per quarter note at the default 120 BPM: a tick is 1/192 s.
const std::vector<uint8_t> kSong = {
    'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 0, 0, 1, 0, 96, 'M', 'T', 'r', 'k', 0, 0, 0, 20,
    0x00, 0x90, 69, 100,     // A4 on, channel 0
    0x00, 0x91, 60, 80,      // C4 on, channel 1
    0x60, 0x80, 69, 64,      // 96 ticks later: A4 off
    0x30, 0x91, 60, 0,       // 48 ticks later: C4 "on" at velocity 0, a release
    0x00, 0xFF, 0x2F, 0x00,  // end of track
};

TEST(AppMidiFile, NotesWithTimesChannelsAndReleases) {
    const std::string path = WriteTemp(kSong);
    const std::vector<MidiNoteEvent> events = ReadMidiFile(path);
    std::filesystem::remove(path);
    ASSERT_EQ(events.size(), 4u);
    EXPECT_TRUE(events[0].note == 69 && events[0].velocity == 100);
    EXPECT_EQ(events[1].channel, 1);
    EXPECT_NEAR(events[2].seconds, 0.5, 1e-6);
    EXPECT_EQ(events[2].velocity, 0) << "note-off";
    EXPECT_NEAR(events[3].seconds, 0.75, 1e-6);
    EXPECT_EQ(events[3].velocity, 0) << "note-on at velocity 0";
}

TEST(AppMidiFile, ControllersAndChannelPressureAreRead) {
    const std::vector<uint8_t> song = {
        'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 0, 0, 1, 0, 96, 'M', 'T', 'r', 'k', 0, 0, 0, 19,
        0x00, 0xB2, 1, 127,      // mod wheel up, channel 2
        0x60, 0xD0, 90,          // 96 ticks later: channel pressure 90
        0x00, 0xE0, 0, 64,       // pitch wheel: not read
        0x00, 0x90, 60, 100,     // a note
        0x00, 0xFF, 0x2F, 0x00,  // end of track
    };
    const std::string path = WriteTemp(song);
    const std::vector<MidiNoteEvent> events = ReadMidiFile(path);
    std::filesystem::remove(path);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_TRUE(events[0].kind == MidiEventKind::Control && events[0].channel == 2 && events[0].note == 1 &&
                events[0].velocity == 127);
    EXPECT_TRUE(events[1].kind == MidiEventKind::Pressure && events[1].velocity == 90);
    EXPECT_NEAR(events[1].seconds, 0.5, 1e-6);
    EXPECT_TRUE(events[2].kind == MidiEventKind::Note && events[2].note == 60);
}

TEST(AppMidiFile, BrokenFilesAreReportedNotCrashedOn) {
    const std::vector<std::vector<uint8_t>> broken = {
        {}, {'R', 'I', 'F', 'F', 1, 2, 3, 4}, {kSong.begin(), kSong.begin() + 10}, {kSong.begin(), kSong.begin() + 25}};
    for (size_t i = 0; i < broken.size(); ++i) {
        const std::string path = WriteTemp(broken[i]);
        try {
            ReadMidiFile(path);
            ADD_FAILURE() << "case " << i << " was read";
        } catch (const InputError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(path + ": ", 0), 0u) << e.what();
        }
        std::filesystem::remove(path);
    }
    EXPECT_THROW(ReadMidiFile("/nonexistent/song.mid"), InputError);
}

// Headers libsmf refuses (and would leak its state on) are refused first, naming the reason.
TEST(AppMidiFile, HeadersLibsmfCannotReadAreRefusedWithTheReason) {
    struct Case {
        size_t at;
        std::vector<uint8_t> bytes;  // replace the song's bytes from `at`
        const char* reason;
    };
    const std::vector<Case> cases = {
        {4, {0, 0, 0, 7}, "header chunk of 7 bytes"},
        {8, {0, 2}, "format 2"},
        {10, {0, 0}, "declares no tracks"},
        {10, {0, 2}, "declares 2 tracks, the file holds 1"},
        {12, {0xE7, 0x28}, "SMPTE"},
        {12, {0, 0}, "0 ticks per quarter note"},
    };
    for (const Case& c : cases) {
        std::vector<uint8_t> song = kSong;
        std::copy(c.bytes.begin(), c.bytes.end(), song.begin() + long(c.at));
        const std::string path = WriteTemp(song);
        try {
            ReadMidiFile(path);
            ADD_FAILURE() << c.reason << ": was read";
        } catch (const InputError& e) {
            EXPECT_NE(std::string(e.what()).find(c.reason), std::string::npos) << e.what();
        }
        std::filesystem::remove(path);
    }
}

// Tracks that libsmf would abort the process on, or cannot read, are refused first.
TEST(AppMidiFile, TracksLibsmfCannotReadAreRefusedWithTheReason) {
    const std::vector<std::pair<std::vector<uint8_t>, const char*>> tracks = {
        {{0x00, 0x90, 60, 100, 0x10, 0x80, 60, 0}, "has no end-of-track event"},
        {{0x00, 0x90, 60, 100, 0x10, 60, 0}, "has no end-of-track event"},  // running status
        {{0x00, 0xF0, 0x01, 0x7F, 0x00, 0x10, 0x00, 0xFF, 0x2F, 0x00}, "running status after a system exclusive"},
        {{0x00, 0xFF, 0x01, 0x05, 'a', 'b'}, "cut off inside an event"},
        {{0x00, 0xF7, 0x01, 0x7F, 0x00, 0xFF, 0x2F, 0x00}, "escaped or undefined system event"},
        {{0x00, 0x40, 0x00, 0x00, 0xFF, 0x2F, 0x00}, "data without a status"},
        {{0x80, 0x80, 0x80, 0x80, 0x00, 0xFF, 0x2F, 0x00}, "unreadable event time"},
    };
    for (const auto& [events, reason] : tracks) {
        std::vector<uint8_t> song = {'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 0, 0, 1, 0, 96, 'M', 'T', 'r', 'k', 0, 0, 0,
                                     uint8_t(events.size())};
        song.insert(song.end(), events.begin(), events.end());
        const std::string path = WriteTemp(song);
        try {
            ReadMidiFile(path);
            ADD_FAILURE() << reason << ": was read";
        } catch (const InputError& e) {
            const std::string what = e.what();
            EXPECT_TRUE(what.find("MIDI track 1 ") != std::string::npos && what.find(reason) != std::string::npos)
                << what;
        }
        std::filesystem::remove(path);
    }
}

}  // namespace
