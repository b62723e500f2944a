// Helpers shared by the document tests: a log recorder, a window that counts what the
// document tells it, and a look at the engine's wires.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "document/vrok_doc.h"
#include "engine/log.h"
#include "engine/vrok_instance.h"

namespace docsupport {

// Records every log line while it lives.
class LogRecorder {
public:
    LogRecorder() {
        Lines().clear();
        previous = SetLogSink(&Record);
    }
    ~LogRecorder() { SetLogSink(previous); }
    bool Has(int level, const std::string& text) const {
        for (const auto& [l, t] : Lines())
            if (l == level && t == text) return true;
        return false;
    }
    size_t Count() const { return Lines().size(); }

private:
    static std::vector<std::pair<int, std::string>>& Lines() {
        static std::vector<std::pair<int, std::string>> lines;
        return lines;
    }
    static void Record(int level, const char* text) { Lines().emplace_back(level, text); }
    LogSink previous;
};

class CountingView : public DocumentView {
public:
    void DocumentChanged() override { ++changes; }
    void StorableAdded(Storable* storable) override { added.push_back(storable); }
    int changes = 0;
    std::vector<Storable*> added;
};

struct Wire {
    int from, to, port;
    bool operator==(const Wire&) const = default;
};

inline std::vector<Wire> LiveWires(const VrokInstance& engine) {
    std::vector<Wire> wires;
    for (const Connection& c : engine.connections)
        if (c.inUse) wires.push_back({c.fromBlock, c.toBlock, c.toPort});
    return wires;
}

inline bool HasWire(const VrokInstance& engine, Wire wire) {
    for (const Wire& w : LiveWires(engine))
        if (w == wire) return true;
    return false;
}

}  // namespace docsupport
