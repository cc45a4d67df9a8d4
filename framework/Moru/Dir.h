// A directory: entities of any type by name, each with an entry state that may be missing. An entry
// without its state has been announced, but is not instantiated yet.
#pragma once

#include <utility>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "framework/Moru/Name.h"

namespace Moru {

class Dir final : public EntityOf<Dir> {
 public:
  struct Entry {
    Ptr<Entity const> entityPtr;
    bool entryState = false;
  };
  using Entries = HashMap2018<Name, Entry>;

  // The id of the one attribute; the key is the Name of the entry that came, changed or went.
  static constexpr AttributeId entityPtrId = 1;
  static const Name* nameOf(const void* key) { return static_cast<const Name*>(key); }

  // Null when there is no entry of that name. A const directory gives out const entities, and so
  // does a walk.
  Ptr<Entity const> entityPtr(const Name& name) const { return entries_.value(name).entityPtr; }
  Ptr<Entity> entityPtr(const Name& name) {
    // It came in as one that may be written.
    return Ptr<Entity>(const_cast<Entity*>(entries_.value(name).entityPtr.get()));
  }
  const Entries& entityPtr() const { return entries_; }

  // False also when there is no entry of that name.
  bool entryState(const Name& name) const { return entries_.value(name).entryState; }

  // Adds an entry, or replaces it; entity and entry state come with one notification. Throws
  // RangeException for a null entity.
  void entityPtrIs(Name name, Ptr<Entity> entity, bool entryState = true) {
    if (!entity) refuseNull("Moru::Dir::entityPtr");
    entries_.is(name, Entry{std::move(entity), entryState});
    notify(entityPtrId, &name);
  }

  // Changes the state of an entry that is there.
  void entryStateIs(Name name, bool entryState) {
    Entry* const entry = entries_.find(name);
    if (entry == nullptr || entry->entryState == entryState) return;
    entry->entryState = entryState;
    notify(entityPtrId, &name);
  }

  void entityPtrDel(Name name) {
    if (entries_.del(name)) notify(entityPtrId, &name);
  }

 private:
  Entries entries_;
};

}  // namespace Moru
