#pragma once

#include "platform/crypt/Container.h"

namespace provider {

/// Longest PIN that is taken, without its terminating zero.
inline constexpr std::size_t longestPin = 64;

/// The question that the process-wide callback answers; empty when there is none.
Container::PinQuestion pinQuestion();

}  // namespace provider
