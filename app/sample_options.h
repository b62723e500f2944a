// `--sample SLOT=FILE` and `--sample-root SLOT=HZ`: samples loaded into a patch's samplers
// from the command line, before a render or a conversion.
#pragma once

#include <string>
#include <vector>

class VrokDoc;

namespace app {

// Loads each FILE into the sampler at SLOT, as the sampler's "load sample" does, then sets
// the roots. Throws UsageError for a malformed argument, a slot without a sampler or a
// root that is not a positive number, and InputError, one line per problem, for a file
// that cannot be loaded. Returns warning lines (a damaged but usable file).
std::vector<std::string> ApplySampleOptions(VrokDoc& document, const std::vector<std::string>& samples,
                                            const std::vector<std::string>& roots);

}  // namespace app
