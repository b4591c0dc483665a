#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <unordered_set>
#include <vector>

namespace iam {

// A set of records by object identity: it holds each object once, and two records are the same
// member only when they are the same object. Members are iterated in the order they were first
// inserted, so that every walk over a set is deterministic. Not thread-safe; like the records it
// holds, a set is filled once and read afterwards.
template <class T>
class IdentitySet {
 public:
  using value_type = std::shared_ptr<T>;
  using const_iterator = typename std::vector<std::shared_ptr<T>>::const_iterator;

  IdentitySet() = default;
  IdentitySet(std::initializer_list<std::shared_ptr<T>> objects) {
    for (const auto& o : objects) insert(o);
  }

  // Adds `object` unless it is null or already a member; true when it was added.
  bool insert(std::shared_ptr<T> object) {
    if (!object || contains(object.get())) return false;
    if (!index_.empty() || members_.size() >= kLinearLimit) {
      if (index_.empty()) {
        for (const auto& m : members_) index_.insert(m.get());
      }
      index_.insert(object.get());
    }
    members_.push_back(std::move(object));
    return true;
  }

  bool contains(const T* object) const {
    if (!index_.empty()) return index_.count(object) != 0;
    for (const auto& m : members_) {
      if (m.get() == object) return true;
    }
    return false;
  }
  bool contains(const std::shared_ptr<T>& object) const { return contains(object.get()); }

  void reserve(std::size_t count) { members_.reserve(count); }
  std::size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  const_iterator begin() const { return members_.begin(); }
  const_iterator end() const { return members_.end(); }
  // The members in insertion order.
  const std::vector<std::shared_ptr<T>>& members() const { return members_; }

 private:
  // Sets are small (a handful of triggers); an index only pays, and only keeps insertion linear,
  // for the large sets a hostile answer could bring.
  static constexpr std::size_t kLinearLimit = 16;

  std::vector<std::shared_ptr<T>> members_;
  std::unordered_set<const T*> index_;  // empty until the set outgrows kLinearLimit
};

}  // namespace iam
