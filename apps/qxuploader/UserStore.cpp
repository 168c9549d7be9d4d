#include "UserStore.h"

#include "Host.h"

namespace qx::app {

UserStore::UserStore(const Settings& settings)
    : platform_(linuxSettings(settings)),
      seams_(platform_.seams()),
      userId_(settings.get("user_id").value_or("")),
      documents_(settings.get("documents").value_or("")) {}

StoredLog UserStore::log() {
  return {seams_.files, seams_.propertyLists, documents_, userId_};
}

UnknownScopes UserStore::unknownScopes() {
  return {seams_.files, seams_.json, documents_, userId_};
}

}  // namespace qx::app
