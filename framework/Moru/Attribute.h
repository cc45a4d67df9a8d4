// The attributes of entities. An attribute is a member that is called like a function; its mutators
// are members of their own beside it, so that a const entity can be read and not written:
//
//   using VlanToVsp = Moru::KeyedAttribute<Moru::HashMap2018, VlanId, VniSourcePair, 1>;
//   VlanToVsp vlanToVsp{this};              map->vlanToVsp(vlan), map->vlanToVsp()
//   VlanToVsp::Is vlanToVspIs{vlanToVsp};   map->vlanToVspIs(vlan, pair)
//   VlanToVsp::Del vlanToVspDel{vlanToVsp}; map->vlanToVspDel(vlan)
//
// A mutator stores first and then notifies, as its last act. What counts as a change:
// - Attribute: the value differs from the one before. With Notifies::onWrite, every write.
// - KeyedAttribute and EntityAttribute: every key that is set, equal value or not, and every key
//   that is removed, if it was there.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

#include "framework/Moru/Collections/HashMap.h"
#include "framework/Moru/Entity.h"
#include "framework/Moru/Exception.h"

namespace Moru {

// The mutators of anything with set, del and delAll, each an object to be called with what that
// takes. They refer to the attribute that they write, and stand beside it in the same object.
template <class Target>
class MutatorOf {
 public:
  explicit MutatorOf(Target& target) : target_(target) {}
  MutatorOf(const MutatorOf&) = delete;
  MutatorOf& operator=(const MutatorOf&) = delete;

 protected:
  Target& target_;
};

template <class Target>
class IsMutator : public MutatorOf<Target> {
 public:
  using MutatorOf<Target>::MutatorOf;
  template <class... Args>
  decltype(auto) operator()(Args&&... args) requires requires(Target& target) {
    target.set(std::forward<Args>(args)...);
  }
  { return this->target_.set(std::forward<Args>(args)...); }
};

template <class Target>
class DelMutator : public MutatorOf<Target> {
 public:
  using MutatorOf<Target>::MutatorOf;
  template <class... Args>
  decltype(auto) operator()(Args&&... args) requires requires(Target& target) {
    target.del(std::forward<Args>(args)...);
  }
  { return this->target_.del(std::forward<Args>(args)...); }
};

template <class Target>
class DelAllMutator : public MutatorOf<Target> {
 public:
  using MutatorOf<Target>::MutatorOf;
  void operator()() { this->target_.delAll(); }
};

// The keys of a collection as it stands. For a mutator that removes all and notifies: it removes
// what was there when it began, each once, and ends, though a watcher may put back what goes.
template <class Collection>
auto keysOf(const Collection& collection) {
  std::vector<std::decay_t<decltype(collection.begin().key())>> keys;
  keys.reserve(collection.size());
  for (auto member = collection.begin(); member; ++member) keys.push_back(member.key());
  return keys;
}

class AttributeBase {
 public:
  AttributeBase(const AttributeBase&) = delete;
  AttributeBase& operator=(const AttributeBase&) = delete;

 protected:
  explicit AttributeBase(const Entity* entity) : entity_(entity) {}
  ~AttributeBase() = default;

  void notify(AttributeId id, const void* key = nullptr) const { entity_->notify(id, key); }

  // For a mutator that goes on after it has notified: handlers may drop the entity.
  Ptr<Entity const> inUse() const { return Ptr<Entity const>(entity_); }

 private:
  const Entity* entity_;
};

enum class Notifies { onChange, onWrite };

// One value.
template <class T, AttributeId Id, Notifies When = Notifies::onChange>
class Attribute : AttributeBase {
 public:
  using Is = IsMutator<Attribute>;
  static constexpr AttributeId id = Id;

  explicit Attribute(const Entity* entity, T initial = T())
      : AttributeBase(entity), value_(std::move(initial)) {}

  const T& operator()() const { return value_; }

 private:
  friend Is;

  void set(T value) {
    if (When == Notifies::onChange && value == value_) return;
    value_ = std::move(value);
    notify(Id);
  }

  T value_;
};

// The value of a collection that is a set of its keys.
struct KeyOnly {
  friend bool operator==(const KeyOnly&, const KeyOnly&) = default;
};

// Values by key, in a collection of the kind `Map`. Looking up an absent key gives the default
// value.
template <template <class...> class Map, class Key, class Value, AttributeId Id>
class KeyedAttribute : AttributeBase {
 public:
  using KeyType = Key;
  using Is = IsMutator<KeyedAttribute>;
  using Del = DelMutator<KeyedAttribute>;
  using DelAll = DelAllMutator<KeyedAttribute>;
  static constexpr AttributeId id = Id;

  explicit KeyedAttribute(const Entity* entity) : AttributeBase(entity) {}

  // The collection, to be walked; members may come and go meanwhile.
  const Map<Key, Value>& operator()() const { return members_; }

  // The value under `key`; of a set, whether it holds the key.
  auto operator()(const Key& key) const {
    if constexpr (std::is_same_v<Value, KeyOnly>)
      return members_.contains(key);
    else
      return members_.value(key);
  }

 private:
  friend Is;
  friend Del;
  friend DelAll;

  // Keys are taken by value: a handler may remove the member that a reference would point into.
  void set(Key key, Value value) {
    members_.is(key, std::move(value));
    notify(Id, &key);
  }

  // A key of a set.
  void set(Key key) requires std::is_same_v<Value, KeyOnly> { set(std::move(key), KeyOnly()); }

  // A value that carries its key.
  void set(const Value& record) requires requires { record.key; }
  { set(record.key, record); }

  void del(Key key) {
    if (members_.del(key)) notify(Id, &key);
  }

  void delAll() {
    const auto entity = this->inUse();
    for (const Key& key : keysOf(members_)) del(key);
  }

  Map<Key, Value> members_;
};

// Entities by their own key (fwkKey()). Looking up an absent key gives null. A const entity gives
// out const members, also to who walks them.
template <class Key, class E, AttributeId Id>
class EntityAttribute : AttributeBase {
 public:
  using KeyType = Key;
  using Is = IsMutator<EntityAttribute>;
  using Del = DelMutator<EntityAttribute>;
  using DelAll = DelAllMutator<EntityAttribute>;
  static constexpr AttributeId id = Id;

  // `name` is the collection's full name, "Vxlan::VtiStatusDir::vtiStatus": a literal, for the text
  // of the exception that refuses a null entity.
  EntityAttribute(const Entity* entity, const char* name) : AttributeBase(entity), name_(name) {}

  ConstHashMap<Key, E> operator()() const { return members_; }
  const HashMap<Key, E>& operator()() { return members_; }
  Ptr<E const> operator()(const Key& key) const { return members_.value(key); }
  Ptr<E> operator()(const Key& key) { return members_.value(key); }

 private:
  friend Is;
  friend Del;
  friend DelAll;

  // Adds an entity, or puts it in the place of the one under its key.
  void set(Ptr<E> entity) {
    if (!entity) refuseNull(name_);
    const Key key = entity->fwkKey();
    members_.is(std::move(entity));
    notify(Id, &key);
  }

  // Gives the entity under `key`, making a new one if there is none. Finding one is not a change.
  Ptr<E> set(const Key& key) {
    if (Ptr<E> present = members_.value(key)) return present;
    auto entity = create<E>(key);
    set(entity);
    return entity;
  }

  void del(Key key) {
    if (members_.del(key)) notify(Id, &key);
  }

  void delAll() {
    const auto entity = this->inUse();
    for (const Key& key : keysOf(members_)) del(key);
  }

  HashMap<Key, E> members_;
  const char* const name_;
};

namespace Detail {
template <class E, class A>
A attributeOf(A E::*);
}  // namespace Detail

// For the switch of a reactor: case Moru::idOf<&VtiStatus::datapathLearning>.
template <auto Attribute>
inline constexpr AttributeId idOf = decltype(Detail::attributeOf(Attribute))::id;

// The key that a reactor is handed for a keyed attribute; null stands for the whole collection.
template <auto Attribute>
const auto* keyOf(const void* key) {
  return static_cast<const typename decltype(Detail::attributeOf(Attribute))::KeyType*>(key);
}

}  // namespace Moru
