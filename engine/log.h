// The one logging function. Levels: 0 information, 1 warning. The default sink discards
// everything; tools and tests install their own. Safe on the audio thread: takes a
// plain C string and never allocates.
#pragma once

using LogSink = void (*)(int level, const char* text);

void Log(int level, const char* text);
// Installs `sink` (null restores the discarding sink) and returns the previous one.
LogSink SetLogSink(LogSink sink);
