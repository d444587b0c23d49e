#pragma once

// Keeps a process alive that reads a file which another one truncates.
//
// A reader maps what a writer has published, and the writer may truncate the file a moment later:
// a read beyond the new end then raises SIGBUS. For mappings that are registered here the handler
// puts a page of zeros in the place of the page that is gone and the read goes on: what it sees is
// no entry, and the reader's look at the versions tells it to map anew.
//
// G1  The handler is installed with the first registration, and gives every other SIGBUS to the
//     handler that was there before. A program that installs a handler of its own later must
//     either call the one that it replaces, or install it before the first reader.
// G2  What is registered is only read. A writer's mapping never is: there a missing page is a fault
//     that must not go unnoticed.

#include <cstddef>

namespace Mem::BusGuard {

/// Whether readers' mappings are guarded; to be said before the first of them. Without the guard
/// a truncation by the writer, which is part of its normal work, may end the process.
void enabledIs(bool enabled);

/// Guards a range of whole pages, from any thread. False when the table of ranges is full; true,
/// with nothing done, when the guard is off.
[[nodiscard]] bool add(const std::byte* base, std::size_t size);
/// Before the range is unmapped.
void remove(const std::byte* base);

/// Whether a page of that range was missing when it was read. It reads as zeros from then on, also
/// when the file has it again.
bool wasPatched(const std::byte* base);

} // namespace Mem::BusGuard
