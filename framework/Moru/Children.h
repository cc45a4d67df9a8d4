// The machines and reactors that a machine owns: single or by key.
//
//   Moru::Children<Vxlan::VniExt, ZepPerVniFdbStatusSm> zepPerVniFdbStatusSm{this};
//   Moru::Children<...>::Is zepPerVniFdbStatusSmIs{zepPerVniFdbStatusSm};
//
// zepPerVniFdbStatusSm(vni) is the member under the key or null, zepPerVniFdbStatusSm() the
// collection in the order of creation. What `Is` does depends on the kind:
// - Children: returns the member under the key, creating it with `key` and the other arguments; the
//   member compares the arguments with those it was made from (see parameterCheck).
// - Child: the same for a single one, without a key. One of a class with isMadeFrom(args...) is
//   replaced when it was made from others, instead of refusing them.
// - Reactors: returns the reactor under the entity's own key, creating one on the entity. One that
//   is there stays on the entity that it was made for, unless its class has handleReplaced(): then
//   it goes over to the one that it is given, and that is called.
//
// `Del` takes a member out of the collection, calls its doCleanup() if its class has one, detaches
// its reactors, and hands it to the caller; null if there is none. A member whose reaction is
// running is freed when that has returned. `DelAll` does so with those that are there when it is
// called: what is put back meanwhile stays.
#pragma once

#include <sstream>
#include <string>
#include <utility>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap.h"
#include "framework/Moru/Exception.h"
#include "framework/Moru/Reactive.h"

namespace Moru {

// Compares a constructor argument of a member that exists with the one that is asked for now.
// Throws NameInUseException if they differ; `name` is that of the argument, as "_vlanVniMap". A
// member class calls it for each argument in constructorCheck(args...).
template <class T, class U>
void parameterCheck(const char* name, const T& current, const U& wanted) {
  if (current == wanted) return;
  std::ostringstream text;
  text << "Reinstantiating the pointer interface where constructor parameter attribute " << name
       << " has a different value of " << wanted << " than the current value of " << current
       << " not allowed";
  throw NameInUseException(text.str());
}

namespace Detail {

// The end of a member's life in its collection, which no longer holds it.
template <class M>
void releaseMember(const Ptr<M>& member) {
  if constexpr (requires { member->doCleanup(); }) member->doCleanup();
  member->moruDoZombieReactors(true);
}

}  // namespace Detail

// What the keyed kinds share.
template <class Key, class M>
class KeyedPart : protected Part {
 public:
  using Del = DelMutator<KeyedPart>;
  using DelAll = DelAllMutator<KeyedPart>;

  Ptr<M> operator()(const Key& key) const { return members_.value(key); }
  const HashMap<Key, M>& operator()() const { return members_; }

 protected:
  explicit KeyedPart(Reactive* owner) : Part(owner) {}

  // Members that are left when the owner goes are detached without their doCleanup(), which would
  // reach into an owner that is no longer whole.
  ~KeyedPart() override {
    for (const auto& [key, member] : members_) retire(*member);
  }

  // Takes in a member that has initialized itself. That ran reactions, and if one of them has made
  // a member of this key already, that one stays.
  Ptr<M> insert(const Ptr<M>& member) {
    if (Ptr<M> present = members_.value(member->fwkKey())) {
      Detail::releaseMember(member);
      return present;
    }
    adopt(*member);
    members_.is(member);
    member->hasNotificationActiveIs(true);
    return member;
  }

  // The key by value: it may be the member's own.
  Ptr<M> del(Key key) {
    Ptr<M> member = members_.del(key);
    if (member) Detail::releaseMember(member);
    return member;
  }

 private:
  friend Del;
  friend DelAll;

  void delAll() {
    for (const Key& key : keysOf(members_)) del(key);
  }

  void hasNotificationActiveIs(bool active) override {
    for (const auto& [key, member] : members_) member->hasNotificationActiveIs(active);
  }

  void moruDoZombieReactors(bool zombie) override {
    for (const auto& [key, member] : members_) member->moruDoZombieReactors(zombie);
  }

  static constexpr std::size_t initialBuckets = 4;
  HashMap<Key, M> members_{initialBuckets};
};

template <class Key, class M>
class Children : public KeyedPart<Key, M> {
 public:
  using Is = IsMutator<Children>;

  explicit Children(Reactive* owner) : KeyedPart<Key, M>(owner) {}

 private:
  friend Is;

  template <class... Args>
  Ptr<M> set(const Key& key, const Args&... args) {
    if (Ptr<M> present = (*this)(key)) {
      present->constructorCheck(args...);
      return present;
    }
    return this->insert(create<M>(key, args...));
  }
};

template <class M>
class Child : Part {
 public:
  using Is = IsMutator<Child>;
  using Del = DelMutator<Child>;

  explicit Child(Reactive* owner) : Part(owner) {}

  ~Child() override {
    if (child_) retire(*child_);
  }

  // Null when there is none.
  const Ptr<M>& operator()() const { return child_; }

 private:
  friend Is;
  friend Del;

  template <class... Args>
  Ptr<M> set(const Args&... args) {
    const Ptr<M> former = child_;
    if (former && isToStay(*former, args...)) return child_;
    auto child = create<M>(args...);
    // It has initialized itself, and that ran reactions: a child that one of them has made stays.
    if (child_ && child_ != former) {
      Detail::releaseMember(child);
      return child_;
    }
    adopt(*child);
    del();
    child_ = child;
    child->hasNotificationActiveIs(true);
    return child;
  }

  template <class... Args>
  static bool isToStay(const M& present, const Args&... args) {
    if constexpr (requires { present.isMadeFrom(args...); }) {
      return present.isMadeFrom(args...);
    } else {
      present.constructorCheck(args...);
      return true;
    }
  }

  Ptr<M> del() {
    Ptr<M> child = std::exchange(child_, nullptr);
    if (child) Detail::releaseMember(child);
    return child;
  }

  void hasNotificationActiveIs(bool active) override {
    if (const auto child = child_) child->hasNotificationActiveIs(active);
  }

  void moruDoZombieReactors(bool zombie) override {
    if (const auto child = child_) child->moruDoZombieReactors(zombie);
  }

  Ptr<M> child_;
};

template <class ReactorType>
using KeyOfReactor =
    std::decay_t<decltype(std::declval<typename ReactorType::Notifier&>().fwkKey())>;

template <class ReactorType>
class Reactors : public KeyedPart<KeyOfReactor<ReactorType>, ReactorType> {
 public:
  using Key = KeyOfReactor<ReactorType>;
  using Notifier = typename ReactorType::Notifier;
  using Owner = typename ReactorType::OwnerType;
  using Is = IsMutator<Reactors>;

  // `name` is the collection's full name, "Vxlan::VxlanControllerClientSm::vtiStatus": a literal,
  // for the text of the exception that refuses a null entity.
  Reactors(Owner* owner, const char* name)
      : KeyedPart<Key, ReactorType>(owner), machine_(owner), name_(name) {}

  // Brings the reactor of one key in line with the entities of a keyed attribute: makes it if the
  // entity is there, drops it if it is not. That is asked anew for the second: making a reactor
  // runs reactions.
  template <class Entities>
  void follow(const Entities& entities, const Key& key) {
    if (const Ptr<Notifier> entity = entities.value(key)) set(entity);
    if (!entities.contains(key)) this->del(key);
  }

  // The same for all: makes a reactor on each of the entities, and drops those of no entity.
  template <class Entities>
  void sync(const Entities& entities) {
    for (const auto& [key, entity] : entities) set(entity);
    for (const auto& [key, reactor] : (*this)())
      if (!entities.contains(key)) this->del(key);
  }

 private:
  friend Is;

  Ptr<ReactorType> set(const Ptr<Notifier>& entity) {
    if (!entity) refuseNull(name_);
    if (Ptr<ReactorType> present = (*this)(entity->fwkKey())) {
      rebind(*present, entity);
      return present;
    }
    const auto reactor = create<ReactorType>(machine_);
    reactor->notifierIs(entity);
    if constexpr (requires { reactor->handleInitialized(); }) reactor->handleInitialized();
    return this->insert(reactor);
  }

  static void rebind(ReactorType& reactor, const Ptr<Notifier>& entity) {
    if constexpr (requires { reactor.handleReplaced(); }) {
      if (reactor.notifier() == entity) return;
      reactor.notifierIs(entity);
      reactor.handleReplaced();
    }
  }

  Owner* const machine_;
  const char* const name_;
};

}  // namespace Moru
