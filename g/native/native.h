// Creates native windows and runs the message loop of this platform's windowing system.
// Declares no type of that system: the toolkit sees only G::NativeWindow.
#pragma once

#include <memory>
#include <string>

#include "g/native_window.h"

namespace G::native {

// Opens the display on first use. Returns null, with a log line saying why, when there is no
// display. `parent` is a native window id for an embedded child (style kStyleChild), 0 otherwise.
// The window starts hidden with its 25 ms timer running; RootControl::ShowTop shows it.
std::unique_ptr<NativeWindow> CreateNativeWindow(const std::wstring& title, const Rect& rect,
                                                 uintptr_t parent, uint32_t style);

// Handles messages until every window's `running` flag is clear or it is destroyed.
void RunMessageLoop();

// Handles the messages already queued, without waiting; for tests and screenshots.
void PumpPendingMessages();

}  // namespace G::native
