// The manual's XML, embedded in the binary at build time (see embed_manual.cmake).
#pragma once

#include <string_view>

namespace resources {

// The bytes of manual.xml as they stood at build time. An empty file was embedded as no
// resource: the view has no data at all.
std::string_view EmbeddedManual();

}  // namespace resources
