// A host for the machine tests: the timing tests set, a record of knob changes and event
// handlers, and a memory stream for saved state.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "machine/host.h"
#include "machine/machine.h"

namespace fake {

class Host : public machine::Host {
public:
    machine::MasterInfo GetMasterInfo() override { return master; }
    machine::MachineHandle GetThisMachine() override { return &identity; }
    void SetMachineInterfaceEx(machine::MachineInterfaceEx* ex) override { extension = ex; }
    void SetEventHandler(machine::MachineHandle, int type, machine::EventHandler handler, void* parameter) override {
        handlers[type] = {handler, parameter};
    }
    std::string GetMachineName(machine::MachineHandle) override { return name; }
    void ControlChange(machine::MachineHandle who, int group, int track, int parameter, int value) override {
        EXPECT_EQ(who, &identity);
        changes.push_back({group, track, parameter, value});
    }
    bool HostMIDIFiltering() override { return acceptsEveryChannel; }
    // Runs the handler the machine installed for `type`; false when there is none.
    bool Fire(int type) { return handlers.count(type) && handlers[type].first(handlers[type].second); }

    machine::MasterInfo master{44100, 44100 * 60 / (126 * 4), 4};
    std::string name = "[VROK] fx";
    bool acceptsEveryChannel = true;
    int identity = 0;
    machine::MachineInterfaceEx* extension = nullptr;
    std::map<int, std::pair<machine::EventHandler, void*>> handlers;
    struct Change {
        int group, track, parameter, value;
    };
    std::vector<Change> changes;
};

// Saved state in memory: written by Save, read back from the start.
class Stream : public machine::DataInput, public machine::DataOutput {
public:
    explicit Stream(std::vector<uint8_t> bytes = {}) : bytes(std::move(bytes)) {}
    void Write(const void* buffer, int numBytes) override {
        const auto* p = static_cast<const uint8_t*>(buffer);
        bytes.insert(bytes.end(), p, p + numBytes);
    }
    bool Read(void* buffer, int numBytes) override {
        const size_t n = std::min(bytes.size() - position, size_t(numBytes));
        if (n > 0) std::memcpy(buffer, bytes.data() + position, n);  // an empty stream has no data pointer
        position += n;
        return n == size_t(numBytes);
    }
    std::vector<uint8_t> bytes;
    size_t position = 0;
};

}  // namespace fake
