#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace iam {

// Told about every item a parser drops or ignores (an advertisement, trigger, target, advertised
// app, store info, resource map, ranked app, an optional member of the wrong type, or the whole
// answer), so that campaign authors can learn why. The parsers themselves stay silent: without a
// sink nothing is formatted. Called synchronously on the parsing thread.
class ZTIAMParseDiagnostics {
 public:
  virtual ~ZTIAMParseDiagnostics() = default;
  // `path` locates the value in the answer ("advertisements[3].display.id"; empty for the root);
  // `reason` says what was wrong and what it cost, in plain words.
  virtual void itemDropped(std::string_view path, std::string_view reason) = 0;
};

// Keeps every report, in order. For tools and tests; not thread-safe.
class ZTIAMCollectingParseDiagnostics final : public ZTIAMParseDiagnostics {
 public:
  struct Entry {
    std::string path;
    std::string reason;
  };

  void itemDropped(std::string_view path, std::string_view reason) override {
    entries_.push_back({std::string(path), std::string(reason)});
  }
  const std::vector<Entry>& entries() const { return entries_; }
  // "path: reason" lines.
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    out.reserve(entries_.size());
    for (const auto& e : entries_) out.push_back(e.path.empty() ? e.reason : e.path + ": " + e.reason);
    return out;
  }

 private:
  std::vector<Entry> entries_;
};

// Where a parser is in the answer, and where to report. A context is a cheap chain of stack
// frames: a child made with `member` or `element` points to its parent and must not outlive it,
// so keep children in locals or pass them straight down. The path is built only when reported.
class ZTIAMParseContext {
 public:
  // Silent.
  ZTIAMParseContext() = default;
  explicit ZTIAMParseContext(ZTIAMParseDiagnostics* diagnostics) : diagnostics_(diagnostics) {}

  bool isReporting() const { return diagnostics_ != nullptr; }
  ZTIAMParseDiagnostics* diagnostics() const { return diagnostics_; }

  ZTIAMParseContext member(std::string_view key) const {
    return diagnostics_ ? ZTIAMParseContext(diagnostics_, this, key, kNoIndex) : ZTIAMParseContext();
  }
  ZTIAMParseContext element(std::size_t index) const {
    return diagnostics_ ? ZTIAMParseContext(diagnostics_, this, {}, index) : ZTIAMParseContext();
  }

  // "a.b[2].c"; empty at the root.
  std::string path() const {
    std::string out;
    appendPath(out);
    return out;
  }
  void report(std::string_view reason) const {
    if (diagnostics_) diagnostics_->itemDropped(path(), reason);
  }

 private:
  static constexpr std::size_t kNoIndex = static_cast<std::size_t>(-1);

  ZTIAMParseContext(ZTIAMParseDiagnostics* diagnostics, const ZTIAMParseContext* parent, std::string_view key,
                    std::size_t index)
      : diagnostics_(diagnostics), parent_(parent), key_(key), index_(index) {}

  void appendPath(std::string& out) const {
    if (!parent_) return;
    parent_->appendPath(out);
    if (index_ != kNoIndex) {
      out += '[';
      out += std::to_string(index_);
      out += ']';
    } else {
      if (!out.empty()) out += '.';
      out += key_;
    }
  }

  ZTIAMParseDiagnostics* diagnostics_ = nullptr;
  const ZTIAMParseContext* parent_ = nullptr;
  std::string_view key_;
  std::size_t index_ = kNoIndex;
};

}  // namespace iam
