#pragma once

#include <cstdint>
#include <optional>
#include <qx.hpp>
#include <string>

namespace qx::tool {

/// What is wrong, in words, with the number of the problem in parentheses. `group`: the one that was checked; none for
/// the file as a whole.
std::string DamageText(std::optional<std::uint32_t> group, const Damage& damage);

}  // namespace qx::tool
