// The manual's text, fetched by resource name from what the build embedded.
#pragma once

#include <string>
#include <string_view>

// The text of the resource `name`: only "manual" (its first six characters decide) exists.
// Logs "Found manual resource! Loading!" when found; the two failure lines are worded the
// other way round, and log readers know them by that wording.
std::string FetchResourceText(std::string_view name);
