#pragma once

#include <cstddef>

namespace ErrorsTest {

/// Allocations of this program since its start.
std::size_t allocations();

/// The next `operator new` of at least that many bytes throws `std::bad_alloc`.
void failNextAllocationOf(std::size_t bytes);

} // namespace ErrorsTest
