#pragma once
// The memory a document or file passes through on its way, a chunk at a time: one buffer per
// thread, kept for all it copies, since a fresh cleared megabyte for each had every small file
// pay for clearing and mapping all of it.
//
// Threads: each thread gets its own; it must not hold it across a call that copies a file too.

#include <QtGlobal>

#include <memory>

namespace exporting {

constexpr qsizetype kChunkBytes = 1 << 20;

inline char *chunkBuffer()
{
    thread_local const std::unique_ptr<char[]> buffer(new char[kChunkBytes]);
    return buffer.get();
}

} // namespace exporting
