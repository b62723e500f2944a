// Fetching the manual from the embedded resources.
#include "help/manual_resource.h"

#include "engine/log.h"
#include "resources/manual.h"

std::string FetchResourceText(std::string_view name) {
    if (name.substr(0, 6) != "manual") {
        Log(0, "Failed to find manual resource");
        return {};
    }
    std::string_view bytes = resources::EmbeddedManual();
    if (bytes.data() == nullptr) {
        Log(0, "Found manual resource, but it is empty?");
        return {};
    }
    Log(0, "Found manual resource! Loading!");
    return std::string(bytes);
}
