#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace uvc_host {

// Cuts an H.264 Annex-B elementary stream into access units (one coded
// picture with the parameter sets and SEI in front of it), the unit one
// recorded frame file holds. A unit ends where an access-unit delimiter,
// SEI or parameter set follows a slice, or where a slice starts a new
// picture (first_mb_in_slice 0). Bytes before the first start code are
// dropped.
std::vector<std::vector<uint8_t>> splitAccessUnits(const std::vector<uint8_t>& stream);

}  // namespace uvc_host
