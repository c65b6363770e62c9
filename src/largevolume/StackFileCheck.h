#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace Ovidane {

// Whether the file `name` exists and is long enough for a raw stack of width, height and
// depth with elements of `elementBytes`. A longer file passes: the stages reuse files, and
// a writer doesn't cut what lies behind its data. Checked before a pass starts, so that a
// truncated stack is refused before any slice of it is used.
bool FileHoldsStack(const std::string& name, uint32_t width, uint32_t height, uint32_t depth,
                    std::size_t elementBytes);

} // namespace Ovidane
