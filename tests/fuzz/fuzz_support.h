// What the fuzz entries share: bytes as a file that lives only in memory, a host for the
// machine shell, and a quiet log. Every entry is `LLVMFuzzerTestOneInput`, linked either
// with libFuzzer or with replay_main.cpp.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/log.h"
#include "machine/host.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// The bytes as a file whose path every reader (fopen, libsndfile, libsmf) can open, kept in
// memory so that millions of runs never touch the disk.
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) {
        fd = memfd_create("vrok-fuzz", 0);
        if (fd < 0) Fail("memfd_create");
        for (size_t done = 0; done < size;) {
            const ssize_t n = write(fd, data + done, size - done);
            if (n <= 0) Fail("write");
            done += size_t(n);
        }
        path = "/proc/self/fd/" + std::to_string(fd);
    }
    ~MemoryFile() { close(fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    const std::string& Path() const { return path; }

private:
    // A harness failure, not a finding in the code under test; stop loudly.
    [[noreturn]] static void Fail(const char* what) {
        std::perror(what);
        std::abort();
    }
    int fd;
    std::string path;
};

// Reads the fuzz bytes front to back; past the end every value is 0.
class ByteSource {
public:
    ByteSource(const uint8_t* data, size_t size) : data(data), size(size) {}
    bool Empty() const { return position >= size; }
    uint8_t Byte() { return position < size ? data[position++] : 0; }
    uint16_t Word() {
        const uint16_t low = Byte();
        return uint16_t(low | Byte() << 8);
    }

private:
    const uint8_t* data;
    size_t size;
    size_t position = 0;
};

// A host with fixed answers; `master` may be changed between calls.
class Host : public machine::Host {
public:
    machine::MasterInfo GetMasterInfo() override { return master; }
    machine::MachineHandle GetThisMachine() override { return this; }
    void SetMachineInterfaceEx(machine::MachineInterfaceEx*) override {}
    void SetEventHandler(machine::MachineHandle, int, machine::EventHandler, void*) override {}
    std::string GetMachineName(machine::MachineHandle) override { return "[VROK] fuzz"; }
    void ControlChange(machine::MachineHandle, int, int, int, int) override {}
    bool HostMIDIFiltering() override { return true; }

    machine::MasterInfo master{44100, 44100 * 60 / (126 * 4), 4};
};

// Saved state coming in from memory, as a host's song file would deliver it.
class InputStream : public machine::DataInput {
public:
    InputStream(const uint8_t* data, size_t size) : data(data), size(size) {}
    bool Read(void* buffer, int numBytes) override {
        const size_t wanted = numBytes > 0 ? size_t(numBytes) : 0;
        const size_t n = std::min(size - position, wanted);
        if (n > 0) std::memcpy(buffer, data + position, n);
        position += n;
        return n == wanted;
    }

private:
    const uint8_t* data;
    size_t size;
    size_t position = 0;
};

// Logging is off by default; a target that installed a sink for a tool would slow every run.
inline void QuietLog() { SetLogSink(nullptr); }

// A property the code promised and broke: abort so that both libFuzzer and the replay test
// report it with the input that did it.
inline void Check(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

}  // namespace fuzz
