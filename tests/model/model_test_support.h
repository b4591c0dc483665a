#pragma once

// Helpers shared by the model and service tests: a valid advertisement answer with every member set,
// archives written key by key, the key order of an archived object and the JSON corpus.

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <msgpack.hpp>
#include <nlohmann/json.hpp>

#include "iam/platform/KeyedArchive.h"

namespace iam::testing {

// Every member present and away from its default, each text distinct.
inline nlohmann::json validAdvertisement() {
  return nlohmann::json::parse(R"({
    "id": "ad-1", "name": "Spring", "display": {"id": 16}, "dataSource": {"id": 2}, "state": {"id": 2},
    "lifecycle": {"startTimestamp": 1700000000.5, "endTimestamp": 1800000000, "maxImpressionCount": 3,
                  "postponeEnabled": true, "postponeDelay": 7200},
    "okAction": {"id": 1, "url": "https://store.example.com/app", "advertisementId": "other"},
    "ignoreGlobalMinimumPopupTimeInterval": true, "resources": {"title": "Hello", "body": null},
    "advertisedApp": {"id": "app-1", "packageName": "com.example.app", "publisher": "Example", "rating": 4, "free": true,
                      "storeUrl": "https://store.example.com/app",
                      "resources": {"name": "App", "AppIcons": "https://i.example.com/a.png"},
                      "storeInfo": {"id": 123456, "bundleId": "com.example.bundle", "name": "Store App", "subtitle": "Sub",
                                    "iconTitle": "A", "icon": {"60": "u60", "100": "u100", "512": "u512"}}},
    "triggers": [{"id": "t1", "key": "appToForeground", "thresholdCount": 3, "displayDelay": 1.5, "maxFireCount": 2,
                  "repeatIntervalCount": 5}, {"id": "t2", "key": "settings"}],
    "targets": [{"id": "g1", "key": "feed", "customViewClass": "Cell", "rowIndex": 2, "rowRepeatInterval": 10,
                 "sectionIndex": 0, "sectionRepeatInterval": 1}]})");
}

// Writes whatever `body` writes, under any class name: archives as an old or broken writer made them.
class ScriptedRecord final : public Archivable {
 public:
  ScriptedRecord(std::string className, std::function<void(KeyedArchiver&)> body)
      : className_(std::move(className)), body_(std::move(body)) {}
  std::string_view archiveClassName() const override { return className_; }
  void encodeWithCoder(KeyedArchiver& coder) const override { body_(coder); }

 private:
  std::string className_;
  std::function<void(KeyedArchiver&)> body_;
};

inline Data archive(const Archivable& record) { return KeyedArchiver::archivedDataWithRootObject(record); }

template <class T>
std::shared_ptr<T> unarchive(const Data& data) {
  return KeyedUnarchiver::unarchivedObjectOfClass<T>(data);
}

template <class T>
std::shared_ptr<T> scripted(std::function<void(KeyedArchiver&)> body) {
  return unarchive<T>(archive(ScriptedRecord(std::string(T::kArchiveClassName), std::move(body))));
}

// The keys of the archived root object, in the order they were written.
inline std::vector<std::string> archivedKeyOrder(const Data& data) {
  std::vector<std::string> keys;
  auto handle = msgpack::unpack(reinterpret_cast<const char*>(data.data()), data.size());
  const msgpack::object& root = handle.get();
  if (root.type != msgpack::type::ARRAY || root.via.array.size != 2) return keys;
  const msgpack::object& map = root.via.array.ptr[1];
  if (map.type != msgpack::type::MAP) return keys;
  for (std::uint32_t i = 0; i < map.via.map.size; ++i) keys.push_back(map.via.map.ptr[i].key.as<std::string>());
  return keys;
}

// The JSONTestSuite parsing cases; names starting "y_" are well-formed JSON.
struct CorpusFile {
  std::string name;
  std::string bytes;
  bool wellFormed() const { return name.rfind("y_", 0) == 0; }
};

inline std::vector<CorpusFile> jsonCorpus() {
  std::vector<CorpusFile> files;
  for (const auto& entry : std::filesystem::directory_iterator(IAM_CORPUS_DIR "/jsontestsuite/test_parsing")) {
    std::ifstream in(entry.path(), std::ios::binary);
    files.push_back({entry.path().filename().string(), std::string(std::istreambuf_iterator<char>(in), {})});
  }
  return files;
}

}  // namespace iam::testing
