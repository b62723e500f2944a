// Log forwards to a replaceable sink held in one atomic pointer.
#include "engine/log.h"

#include <atomic>

namespace {
void Discard(int, const char*) {}
std::atomic<LogSink> currentSink{Discard};
}  // namespace

void Log(int level, const char* text) { currentSink.load(std::memory_order_relaxed)(level, text); }

LogSink SetLogSink(LogSink sink) { return currentSink.exchange(sink ? sink : Discard); }
