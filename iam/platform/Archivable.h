#pragma once

// The keyed archive: records write themselves as a tree of typed values under text keys, and are
// read back from it. The bytes are MessagePack, with one tagging convention:
//
//   integer, double, boolean, string, null, array, map   the MessagePack types of the same name
//                                                          (maps have string keys)
//   data blob                                             MessagePack bin
//   date                                                  the MessagePack timestamp extension (-1)
//   object                                                a two-element array [ext 1 holding the
//                                                          class name as UTF-8, map of its keys]
//
// `KeyedArchiver` writes, `KeyedUnarchiver` and `ArchiveValue` read, `ArchiveClassRegistry` maps
// class names to decoders for archives read without demanding a class.

#include <cstdint>
#include <string_view>
#include <vector>

namespace iam {

class KeyedArchiver;
class KeyedUnarchiver;

using Data = std::vector<std::uint8_t>;

// A record that writes itself into a keyed archive. A class that can also be read back has
//   static constexpr std::string_view kArchiveClassName = "...";
//   static std::shared_ptr<T> initWithCoder(const KeyedUnarchiver& coder);   // none = refused
// and `archiveClassName()` returns kArchiveClassName.
class Archivable {
 public:
  virtual ~Archivable() = default;
  virtual std::string_view archiveClassName() const = 0;
  virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;
};

// Deepest nesting of objects that a decoder follows; deeper values read as absent. The archiver
// writes null in their place.
inline constexpr int kMaximumArchiveObjectDepth = 64;

}  // namespace iam
