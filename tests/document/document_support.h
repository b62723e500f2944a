// Helpers for the document tests: a log recorder and a look at the engine's live wires.
#pragma once

#include <algorithm>
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
    LogRecorder() : previous(SetLogSink(&Record)) { Lines().clear(); }
    ~LogRecorder() { SetLogSink(previous); }
    bool Has(int level, const std::string& text) const {
        return std::find(Lines().begin(), Lines().end(), std::make_pair(level, text)) != Lines().end();
    }

private:
    static std::vector<std::pair<int, std::string>>& Lines() {
        static std::vector<std::pair<int, std::string>> lines;
        return lines;
    }
    static void Record(int level, const char* text) { Lines().emplace_back(level, text); }
    LogSink previous;
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
    const std::vector<Wire> wires = LiveWires(engine);
    return std::find(wires.begin(), wires.end(), wire) != wires.end();
}

}  // namespace docsupport
