// A host that only links the installed package and uses its umbrella header.
#include "iam/iam.h"

int main() {
  auto store = std::make_shared<iam::InMemoryPreferencesStore>();
  iam::PreferencesStore::setStandard(store);
  iam::ZTSettings::incrementRunCount();
  return iam::ZTSettings::runCount() == 1 ? 0 : 1;
}
