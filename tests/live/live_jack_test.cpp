// `vrok play` against a private JACK server on the dummy driver, no sound card involved:
// notes at their pitches and frames, input equal to `vrok render`'s, the pitch wheel through
// the bend range, the sustain pedal, the channel filter, audio through an input patch,
// the server going away, and devices that cannot be used.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sndfile.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>

#include "g/bitmap.h"
#include "g/theme.h"
#include "jack_probe.h"

namespace {

using probe::JackProbe;
using probe::Recording;
using probe::TimedMidi;

constexpr int kRate = 44100;
constexpr int kBuffer = 256;
const std::string kVrok = VROK_BINARY;
const std::string kExamples = VROK_EXAMPLES_DIR;
const std::string kWork = VROK_WORK_DIR;

// A child process whose output goes to a file; killed with the test if the test dies.
class Child {
public:
    Child(const std::vector<std::string>& argv, const std::string& logFile) : log(logFile) {
        pid = fork();
        if (pid == 0) {
            // SIGTERM, not SIGKILL: a JACK server killed outright keeps its slot in JACK's
            // registry of servers, and after eight such no server starts at all.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            const int fd = ::open(logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(fd, 1);
            dup2(fd, 2);
            std::vector<char*> args;
            for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
            args.push_back(nullptr);
            execvp(args[0], args.data());
            _exit(127);
        }
    }
    // Asks the child to end, then insists.
    ~Child() {
        if (pid <= 0 || Wait(0.0)) return;
        kill(pid, SIGTERM);
        if (Wait(10.0)) return;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    // True once the child has ended (within `seconds`); its exit status in `status`.
    bool Wait(double seconds) {
        if (exited) return true;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        for (;;) {
            int raw = 0;
            if (waitpid(pid, &raw, WNOHANG) == pid) {
                exited = true;
                status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
                return true;
            }
            if (std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    void Signal(int signal) { kill(pid, signal); }
    std::string Output() const {
        std::ifstream file(log);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

    pid_t pid = -1;
    bool exited = false;
    int status = -1;

private:
    std::string log;
};

// A JACK server of the test's own, on the dummy driver, under a name no one else uses.
class Server {
public:
    explicit Server(const std::string& name, int rate = kRate) : name(name) {
        server.emplace(std::vector<std::string>{"jackd", "-n", name, "--no-realtime", "--sync", "-d", "dummy",
                                                "-r", std::to_string(rate), "-p", std::to_string(kBuffer)},
                       kWork + "/" + name + ".log");
        setenv("JACK_DEFAULT_SERVER", name.c_str(), 1);
    }
    bool WaitUntilUp() {
        for (int i = 0; i < 250; ++i) {
            if (server->Wait(0.0)) return false;
            jack_status_t status{};
            if (jack_client_t* c = jack_client_open("vrok-wait", JackNoStartServer, &status)) {
                jack_client_close(c);
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }
    Child& Process() { return *server; }

    std::string name;

private:
    std::optional<Child> server;
};

// Server names stay the same for one build folder, so that a server that died without
// saying goodbye leaves a registry slot the next run takes over, and differ between build
// folders, so that two checkouts can test at once.
std::string ServerName(const std::string& role) {
    return "vrok-test-" + std::to_string(std::hash<std::string>{}(kWork) % 100000) + "-" + role;
}

bool HaveJackd() { return std::system("command -v jackd >/dev/null 2>&1") == 0; }

void Quiet(const char*) {}

std::string Patch(const std::string& name) { return kExamples + "/" + name; }

TimedMidi At(double seconds, std::vector<uint8_t> bytes) {
    return {std::lround(seconds * kRate), std::move(bytes)};
}

// Frequency from the rising zero crossings between two times, interpolated between samples.
double Frequency(const std::vector<float>& x, double fromSeconds, double toSeconds, int rate = kRate) {
    const size_t from = size_t(fromSeconds * rate), to = std::min(x.size(), size_t(toSeconds * rate));
    double first = -1.0, last = -1.0;
    int crossings = 0;
    for (size_t i = from + 1; i < to; ++i) {
        if (x[i - 1] < 0.0f && x[i] >= 0.0f) {
            const double at = double(i - 1) + double(-x[i - 1]) / double(x[i] - x[i - 1]);
            if (first < 0.0) first = at;
            last = at;
            ++crossings;
        }
    }
    return crossings < 2 ? 0.0 : (crossings - 1) * double(rate) / (last - first);
}

// The graph's loop through vrok and back delays the recording by whole buffers. Finds the
// delay (up to three buffers) at which `recorded` best matches `expected`, and how far
// apart they then are at worst.
struct Match {
    long lag = 0;
    float worst = 0.0f;
};
Match BestMatch(const std::vector<float>& recorded, const std::vector<float>& expected) {
    Match best{0, INFINITY};
    for (long lag = 0; lag <= 3 * kBuffer; lag += kBuffer) {
        float worst = 0.0f;
        for (size_t i = 0; i + size_t(lag) < recorded.size() && i < expected.size(); ++i)
            worst = std::max(worst, std::fabs(recorded[i + size_t(lag)] - expected[i]));
        if (worst < best.worst) best = {lag, worst};
    }
    return best;
}

double Semitones(double semitones) { return std::pow(2.0, semitones / 12.0); }

struct Stereo {
    std::vector<float> left, right;
};
Stereo ReadStereo(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file || info.channels != 2) return {};
    std::vector<float> frames(size_t(info.frames * 2));
    sf_readf_float(file, frames.data(), info.frames);
    sf_close(file);
    Stereo stereo;
    for (size_t i = 0; i < frames.size(); i += 2) {
        stereo.left.push_back(frames[i]);
        stereo.right.push_back(frames[i + 1]);
    }
    return stereo;
}

class LiveJack : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        jack_set_error_function(&Quiet);
        jack_set_info_function(&Quiet);
        if (!HaveJackd()) return;
        server = new Server(ServerName("play"));
        if (!server->WaitUntilUp()) {
            delete server;
            server = nullptr;
        }
    }
    static void TearDownTestSuite() {
        delete server;  // its destructor kills jackd
        server = nullptr;
    }
    void SetUp() override {
        if (!HaveJackd()) GTEST_SKIP() << "jackd is not installed";
        ASSERT_NE(server, nullptr) << "the dummy JACK server did not start";
        setenv("JACK_DEFAULT_SERVER", server->name.c_str(), 1);
    }

    // Starts `vrok play` with `extra` arguments and a probe wired to it.
    void Play(const std::string& patch, std::vector<std::string> extra = {}) {
        std::vector<std::string> argv = {kVrok, "play", Patch(patch)};
        argv.insert(argv.end(), extra.begin(), extra.end());
        vrok.emplace(argv, kWork + "/play.log");
        jack = std::make_unique<JackProbe>();
        ASSERT_TRUE(jack->ConnectToVrok(20.0)) << vrok->Output();
        ASSERT_EQ(jack->sampleRate, kRate);
    }
    // Ctrl-C, as a user would stop it: a clean exit with the closing line.
    void Stop() {
        vrok->Signal(SIGINT);
        ASSERT_TRUE(vrok->Wait(10.0)) << "vrok play did not stop on SIGINT";
        EXPECT_EQ(vrok->status, 0) << vrok->Output();
        EXPECT_NE(vrok->Output().find("longest callback"), std::string::npos) << vrok->Output();
    }
    static Server* server;
    std::optional<Child> vrok;
    std::unique_ptr<JackProbe> jack;
};

Server* LiveJack::server = nullptr;

TEST_F(LiveJack, NotesSoundAtTheirPitches) {
    ASSERT_NO_FATAL_FAILURE(Play("sine_a4.vrkx"));
    const Recording r =
        jack->Run({At(0.1, {0x90, 69, 100}), At(0.5, {0x80, 69, 0}), At(0.5, {0x90, 76, 100})}, kRate);
    Stop();
    EXPECT_NEAR(Frequency(r.left, 0.15, 0.49), 440.0, 0.5);
    EXPECT_NEAR(Frequency(r.left, 0.53, 0.99), 440.0 * Semitones(7), 0.5);
    EXPECT_EQ(r.left, r.right);
}

// The click example sounds one sample at each note's frame. The loop through vrok and
// back delays everything by the same whole number of buffers; within that, each note
// starts on the frame it was sent at, wherever that falls in a buffer.
TEST_F(LiveJack, NotesSoundAtTheirFrames) {
    ASSERT_NO_FATAL_FAILURE(Play("click.vrkx"));
    const std::vector<long> frames = {17 * kBuffer, 20 * kBuffer + 37, 32 * kBuffer - 1, 40 * kBuffer + 128};
    std::vector<TimedMidi> events;
    for (size_t i = 0; i < frames.size(); ++i) events.push_back({frames[i], {0x90, uint8_t(60 + i), 100}});
    const Recording r = jack->Run(events, 48 * kBuffer);
    Stop();
    std::vector<long> clicks;
    for (size_t k = 0; k < r.left.size(); ++k)
        if (r.left[k] != 0.0f) clicks.push_back(long(k));
    ASSERT_EQ(clicks.size(), frames.size());
    const long lag = clicks[0] - frames[0];
    EXPECT_TRUE(lag >= 0 && lag <= 2 * kBuffer && lag % kBuffer == 0) << "delay " << lag;
    for (size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(clicks[i] - lag, frames[i]) << "note " << i;
}

TEST_F(LiveJack, PitchWheelBendsByTheBendRange) {
    ASSERT_NO_FATAL_FAILURE(Play("sine_a4.vrkx"));  // bend range 12 semitones
    const Recording r = jack->Run({At(0.0, {0x90, 69, 100}), At(0.3, {0xE0, 0x7F, 0x7F}),
                                   At(0.6, {0xE0, 0, 0}), At(0.9, {0xE0, 0, 0x40})},
                                  int(1.2 * kRate));
    Stop();
    EXPECT_NEAR(Frequency(r.left, 0.05, 0.29), 440.0, 0.5);
    EXPECT_NEAR(Frequency(r.left, 0.33, 0.59), 440.0 * Semitones(12.0 * 8191.0 / 8192.0), 0.5)
        << "full throw up";
    EXPECT_NEAR(Frequency(r.left, 0.63, 0.89), 220.0, 0.5) << "full throw down";
    EXPECT_NEAR(Frequency(r.left, 0.93, 1.19), 440.0, 0.5) << "back at rest";
}

// The example has one voice and never steals it: a note struck while another is held is
// dropped, so which pitch sounds shows which key the engine still holds.
TEST_F(LiveJack, SustainPedalHoldsANoteUntilItComesUp) {
    ASSERT_NO_FATAL_FAILURE(Play("sine_a4.vrkx"));
    const Recording r = jack->Run(
        {At(0.0, {0x90, 69, 100}), At(0.2, {0xB0, 64, 127}), At(0.3, {0x80, 69, 0}), At(0.4, {0x90, 72, 100}),
         At(0.6, {0xB0, 64, 0}), At(0.7, {0x90, 76, 100}), At(0.9, {0x90, 76, 0}), At(1.0, {0x90, 72, 100})},
        int(1.3 * kRate));
    Stop();
    EXPECT_NEAR(Frequency(r.left, 0.45, 0.59), 440.0, 0.5) << "the pedal kept A4 held, so C5 found no voice";
    EXPECT_NEAR(Frequency(r.left, 0.75, 0.89), 440.0 * Semitones(7), 0.5) << "the pedal released A4";
    EXPECT_NEAR(Frequency(r.left, 1.05, 1.29), 440.0 * Semitones(3), 0.5)
        << "with no pedal a release is at once";
}

TEST_F(LiveJack, ChannelFilterPlaysOnlyTheChosenChannel) {
    ASSERT_NO_FATAL_FAILURE(Play("sine_a4.vrkx", {"--midi-channel", "2"}));
    const std::vector<TimedMidi> events = {At(0.0, {0x90, 69, 100}), At(0.2, {0x92, 69, 100}),
                                           At(0.2, {0xE2, 0x7F, 0x7F}), At(0.4, {0x91, 76, 100})};
    const Recording r = jack->Run(events, int(0.7 * kRate));
    Stop();
    // Before its first note the example's voice sits at note -1, about 7 Hz.
    EXPECT_LT(Frequency(r.left, 0.02, 0.39), 20.0) << "notes on channels 1 and 3 were dropped";
    EXPECT_NEAR(Frequency(r.left, 0.45, 0.69), 440.0 * Semitones(7), 0.5)
        << "the bend on channel 3 was dropped";
}

// The input path holds no state, so here live and `vrok render --input` must agree sample
// for sample, once the loop's delay is taken off.
TEST_F(LiveJack, InputPassesThroughAnInputPatchAsInARender) {
    ASSERT_NO_FATAL_FAILURE(Play("input_pass.vrkx"));
    std::vector<float> left(size_t(kRate / 2)), right(size_t(kRate / 2)), interleaved;
    for (size_t i = 0; i < left.size(); ++i) {
        left[i] = 0.5f * float(std::sin(2.0 * M_PI * 1000.0 * double(i) / kRate));
        right[i] = -0.25f * float(std::sin(2.0 * M_PI * 300.0 * double(i) / kRate));
        interleaved.insert(interleaved.end(), {left[i], right[i]});
    }
    const Recording r = jack->Run({}, kRate, left, right);
    Stop();

    const std::string input = kWork + "/input.wav", output = kWork + "/input_render.wav";
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(input.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_writef_float(file, interleaved.data(), sf_count_t(left.size()));
    sf_close(file);
    const std::string command = kVrok + " render " + Patch("input_pass.vrkx") + " --input " + input +
                                " --seconds 0.9 -o " + output + " >/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const Stereo rendered = ReadStereo(output);
    const Match leftMatch = BestMatch(r.left, rendered.left), rightMatch = BestMatch(r.right, rendered.right);
    EXPECT_LT(leftMatch.worst, 1e-6f) << "left: live and rendered differ";
    EXPECT_LT(rightMatch.worst, 1e-6f) << "right: live and rendered differ";
    EXPECT_EQ(leftMatch.lag, rightMatch.lag);
    EXPECT_GT(*std::max_element(r.left.begin(), r.left.end()), 0.2f) << "the input was heard";
}

TEST_F(LiveJack, DevicesListsTheServersPorts) {
    JackProbe probe;  // its ports are there to be listed
    Child devices({kVrok, "devices"}, kWork + "/devices.log");
    ASSERT_TRUE(devices.Wait(20.0));
    EXPECT_EQ(devices.status, 0);
    const std::string text = devices.Output();
    EXPECT_NE(text.find("JACK server at 44100 Hz, 256 frames"), std::string::npos) << text;
    EXPECT_NE(text.find("vrok-probe:midi_out"), std::string::npos) << text;
}

// Each of these fails before anything plays, with one line naming what was wrong, exit
// status 1, and no vrok client left on the server.
TEST_F(LiveJack, UnusableDevicesEndWithOneMessage) {
    struct Row {
        std::vector<std::string> arguments;
        std::string message;
        std::string patch = "sine_a4.vrkx";
    };
    const std::vector<Row> rows = {
        {{"--midi-in", "no-such-keyboard"}, "no MIDI source named \"no-such-keyboard\""},
        {{"--rate", "48000"}, "runs at 44100 Hz and cannot play at 48000 Hz"},
        {{"--device", "vrok-nobody-runs-this"}, "JACK server \"vrok-nobody-runs-this\": cannot connect"},
        {{"--audio", "alsa", "--device", "vrok-no-such-card"}, "ALSA"},
        {{}, "no-such-patch.vrkx: cannot read file", "no-such-patch.vrkx"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> argv = {kVrok, "play", Patch(row.patch)};
        argv.insert(argv.end(), row.arguments.begin(), row.arguments.end());
        Child play(argv, kWork + "/refused.log");
        ASSERT_TRUE(play.Wait(20.0)) << row.message;
        EXPECT_EQ(play.status, 1) << play.Output();
        const std::string output = play.Output();
        EXPECT_NE(output.find("vrok: "), std::string::npos) << output;
        EXPECT_NE(output.find(row.message), std::string::npos) << output;
        EXPECT_EQ(output.find("playing"), std::string::npos) << output;
        EXPECT_FALSE(probe::PortExists("vrok:midi_in")) << "a client was left behind";
    }
}

// The editor plays while it edits: the computer keyboard's piano is heard through the
// device, and the top bar carries the meter, which a silent editor does not draw. Needs
// an X server (the test runs under xvfb-run) and xdotool.
TEST_F(LiveJack, EditorPlaysItsPianoAndShowsTheMeter) {
    if (!std::getenv("DISPLAY") || std::system("command -v xdotool >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "needs an X display and xdotool";
    const std::string playing = kWork + "/edit_playing.png", silent = kWork + "/edit_silent.png";
    Child edit(
        {kVrok, "edit", Patch("click.vrkx"), "--audio", "jack", "--screenshot", playing, "--after", "2500"},
        kWork + "/edit.log");
    jack = std::make_unique<JackProbe>();
    ASSERT_TRUE(jack->ConnectToVrok(20.0)) << edit.Output();
    // Z and X on the piano while the probe records; the click example sounds one sample
    // for each note.
    std::thread keys([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        std::system("xdotool mousemove 300 400 click 1 sleep 0.2 key z sleep 0.3 key x >/dev/null 2>&1");
    });
    const Recording r = jack->Run({}, int(1.5 * kRate));
    keys.join();
    ASSERT_TRUE(edit.Wait(20.0)) << "the editor did not end after its screenshot";
    EXPECT_EQ(edit.status, 0) << edit.Output();
    EXPECT_NE(edit.Output().find("longest callback"), std::string::npos) << edit.Output();
    const long clicks = std::count_if(r.left.begin(), r.left.end(), [](float x) { return x != 0.0f; });
    EXPECT_EQ(clicks, 2) << "two piano keys, two clicks";

    Child quiet({kVrok, "edit", Patch("click.vrkx"), "--screenshot", silent, "--after", "500"},
                kWork + "/quiet.log");
    ASSERT_TRUE(quiet.Wait(20.0));
    ASSERT_EQ(quiet.status, 0) << quiet.Output();
    // The meter stands right-aligned before the buttons, in the top bar's middle stretch.
    auto inkInMeterArea = [](const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const std::unique_ptr<G::Bitmap> image =
            G::DecodePng(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        if (!image) return -1;
        const uint8_t* background = image->Row(9) + 450 * image->bytesPerPixel;
        int ink = 0;
        for (int y = 2; y < 16; ++y)
            for (int x = 450; x < 690; ++x)
                ink += std::memcmp(image->Row(y) + x * image->bytesPerPixel, background, 3) != 0;
        return ink;
    };
    EXPECT_GT(inkInMeterArea(playing), 50) << "no meter in the playing editor's top bar";
    EXPECT_EQ(inkInMeterArea(silent), 0) << "a silent editor draws no meter";
}

// A server of its own, at another rate, so the others' server keeps running. The engine
// follows the device's rate, so A4 is still 440 Hz; and the player sees the server's going
// away, whether it quits or is killed, and ends with a message instead of hanging.
TEST(LiveJackServer, PlaysInTuneAtTheServersRateAndEndsWhenItGoesAway) {
    if (!HaveJackd()) GTEST_SKIP() << "jackd is not installed";
    constexpr int kOtherRate = 48000;
    for (int signal : {SIGTERM, SIGKILL}) {
        Server server(ServerName("gone"), kOtherRate);
        ASSERT_TRUE(server.WaitUntilUp());
        Child play({kVrok, "play", Patch("sine_a4.vrkx")}, kWork + "/gone.log");
        {
            JackProbe probe;
            ASSERT_TRUE(probe.ConnectToVrok(20.0)) << play.Output();
            ASSERT_EQ(probe.sampleRate, kOtherRate);
            const Recording r = probe.Run({{0, {0x90, 69, 100}}}, kOtherRate / 4);
            EXPECT_NEAR(Frequency(r.left, 0.02, 0.25, kOtherRate), 440.0, 0.5);
        }
        server.Process().Signal(signal);
        ASSERT_TRUE(play.Wait(15.0)) << "vrok play hung after the server went away (signal " << signal << ")";
        EXPECT_EQ(play.status, 1) << play.Output();
        EXPECT_NE(play.Output().find("went away"), std::string::npos) << play.Output();
        EXPECT_NE(play.Output().find("at 48000 Hz"), std::string::npos) << play.Output();
    }
    // The killed server left its slot in JACK's registry of servers; a server of the same
    // name takes it over, and quitting properly gives it back.
    Server cleanup(ServerName("gone"), kOtherRate);
    EXPECT_TRUE(cleanup.WaitUntilUp());
}

}  // namespace
