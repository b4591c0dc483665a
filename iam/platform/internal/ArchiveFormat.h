#pragma once

// The keyed archive's MessagePack conventions, shared by its writer and its readers.

#include <cstddef>
#include <cstdint>

#include "iam/platform/Archivable.h"

namespace iam::archive_format {

// Tags of the archive's extension values.
inline constexpr std::int8_t kTimestampExtType = -1;
inline constexpr std::int8_t kClassNameExtType = 1;

// Nesting of MessagePack containers a decoder accepts. An object takes two levels (array and map),
// so this leaves room for kMaximumArchiveObjectDepth objects with arrays and maps between them.
inline constexpr std::size_t kMaximumContainerDepth = 4 * kMaximumArchiveObjectDepth;

inline constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

// Header bytes of the 32-bit array and map forms, which the archiver always writes.
inline constexpr std::uint8_t kArray32 = 0xdd;
inline constexpr std::uint8_t kMap32 = 0xdf;

inline void putBigEndian32(std::uint8_t* at, std::uint32_t v) {
  at[0] = static_cast<std::uint8_t>(v >> 24);
  at[1] = static_cast<std::uint8_t>(v >> 16);
  at[2] = static_cast<std::uint8_t>(v >> 8);
  at[3] = static_cast<std::uint8_t>(v);
}

inline std::uint32_t bigEndian32(const char* p) {
  const auto* b = reinterpret_cast<const unsigned char*>(p);
  return (std::uint32_t{b[0]} << 24) | (std::uint32_t{b[1]} << 16) | (std::uint32_t{b[2]} << 8) | std::uint32_t{b[3]};
}

inline std::uint64_t bigEndian64(const char* p) {
  return (std::uint64_t{bigEndian32(p)} << 32) | bigEndian32(p + 4);
}

}  // namespace iam::archive_format
