// The small keyed collection of shared members, each of which knows its own key (fwkKey()):
// children, reactors, entities. Iteration is in the order of insertion; a member that replaces
// another takes its place.
//
//   for (const auto& [key, member] : map) ...          key and member are copies, and stay
//   for (auto it = map.begin(); it; ++it) it.key() ...
//
// Members may come and go, the current one too, while iterators are on their way: the iterators of
// a map are on a list, and are moved on when the member that they stand on goes. An iterator may
// even outlive its map, and is then at its end.
#pragma once

#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "framework/Moru/Assert.h"
#include "framework/Moru/Exception.h"
#include "framework/Moru/Hash.h"
#include "framework/Moru/Ptr.h"

namespace Moru {

template <class Key, class M>
class HashMap {
  struct Node {
    Key key;
    Ptr<M> member;
    Node* previous;
    Node* next = nullptr;
    Node* sameBucket = nullptr;
  };

 public:
  class Iterator;

  // `buckets` is the number to begin with, rounded up to a power of two; it doubles whenever there
  // are more members.
  explicit HashMap(std::size_t buckets = 4) : bucketsLog2_(log2Of(buckets)) {}
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;

  ~HashMap() {
    while (!empty()) delAll();
    while (iterators_ != nullptr) iterators_->leave();
  }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(const Key& key) const { return find(key) != nullptr; }

  // Null when there is no member of that key.
  const Ptr<M>* find(const Key& key) const {
    const Node* const node = nodeOf(key);
    return node != nullptr ? &node->member : nullptr;
  }

  Ptr<M> value(const Key& key) const {
    const Ptr<M>* const member = find(key);
    return member != nullptr ? *member : nullptr;
  }

  // Adds a member, or puts it in the place of the one of its key. True if the key is new. Throws
  // RangeException for a null.
  bool is(Ptr<M> member) {
    if (!member) refuseNull("Moru::HashMap::member");
    Key key = member->fwkKey();
    if (Node* const node = nodeOf(key)) {
      node->member.swap(member);  // the one it replaces goes on return
      return false;
    }
    if (size_ >= buckets_.size()) grow();
    Node* const node = new Node{std::move(key), std::move(member), last_};
    (last_ != nullptr ? last_->next : first_) = node;
    last_ = node;
    chain(*node);
    ++size_;
    return true;
  }

  // Takes the member of that key out and gives it to the caller; null if there is none.
  Ptr<M> del(const Key& key) {
    if (buckets_.empty()) return nullptr;
    Node** link = &bucketOf(key);
    while (*link != nullptr && !((*link)->key == key)) link = &(*link)->sameBucket;
    if (*link == nullptr) return nullptr;
    const std::unique_ptr<Node> node(*link);
    *link = node->sameBucket;
    (node->previous != nullptr ? node->previous->next : first_) = node->next;
    (node->next != nullptr ? node->next->previous : last_) = node->previous;
    --size_;
    for (Iterator* each = iterators_; each != nullptr; each = each->nextIterator_)
      each->moveOn(*node);
    return std::move(node->member);
  }

  // Removes what is there. What the members add as they go may stay.
  void delAll() {
    std::size_t left = size_;  // what comes meanwhile comes behind these
    for (Iterator it = begin(); it && left > 0; ++it, --left) del(it.key());
  }

  Iterator begin() const { return Iterator(*this); }
  std::default_sentinel_t end() const { return std::default_sentinel; }

 private:
  static constexpr unsigned log2Of(std::size_t buckets) {
    unsigned log2 = 0;
    while (std::size_t{1} << log2 < buckets) ++log2;
    return log2;
  }

  Node*& bucketOf(const Key& key) { return buckets_[hashTop(std::hash<Key>()(key), bucketsLog2_)]; }

  Node* nodeOf(const Key& key) const {
    if (buckets_.empty()) return nullptr;
    Node* node = buckets_[hashTop(std::hash<Key>()(key), bucketsLog2_)];
    while (node != nullptr && !(node->key == key)) node = node->sameBucket;
    return node;
  }

  void chain(Node& node) {
    Node*& bucket = bucketOf(node.key);
    node.sameBucket = bucket;
    bucket = &node;
  }

  // Makes the buckets that were asked for at first, twice as many from then on.
  void grow() {
    if (!buckets_.empty()) ++bucketsLog2_;
    buckets_.assign(std::size_t{1} << bucketsLog2_, nullptr);
    for (Node* node = first_; node != nullptr; node = node->next) chain(*node);
  }

  std::vector<Node*> buckets_;
  unsigned bucketsLog2_;
  std::size_t size_ = 0;
  Node* first_ = nullptr;
  Node* last_ = nullptr;
  mutable Iterator* iterators_ = nullptr;
};

template <class Key, class M>
class HashMap<Key, M>::Iterator {
 public:
  struct Entry {
    Key key;
    Ptr<M> value;
  };

  Iterator() = default;  // at the end
  explicit Iterator(const HashMap& map) { enter(&map, map.first_); }
  Iterator(const Iterator& other) : key_(other.key_), removed_(other.removed_) {
    enter(other.map_, other.node_);
  }
  Iterator& operator=(const Iterator& other) {
    if (this == &other) return *this;
    leave();
    key_ = other.key_;
    removed_ = other.removed_;
    enter(other.map_, other.node_);
    return *this;
  }
  ~Iterator() { leave(); }

  // False at the end.
  explicit operator bool() const { return node_ != nullptr; }
  friend bool operator==(const Iterator& it, std::default_sentinel_t) { return !it; }

  // The key of the member that the iterator has come to, which may have been removed since.
  const Key& key() const { return key_; }

  // The member, which must still be there: that is asserted.
  const Ptr<M>& value() const {
    assertThat(node_ != nullptr && !removed_, "the iterator stands on a member");
    return node_->member;
  }

  Entry operator*() const { return {key_, value()}; }

  Iterator& operator++() {
    if (!removed_ && node_ != nullptr) node_ = node_->next;
    removed_ = false;
    if (node_ != nullptr) key_ = node_->key;
    return *this;
  }

 private:
  friend class HashMap;

  // Not inlined: the compiler would warn that the list keeps the address of a local object, which
  // the iterator's destructor takes out again.
  [[gnu::noinline]] void enter(const HashMap* map, Node* node) {
    map_ = map;
    node_ = node;
    if (map_ == nullptr) return;
    if (node_ != nullptr && !removed_) key_ = node_->key;
    nextIterator_ = map_->iterators_;
    if (nextIterator_ != nullptr) nextIterator_->previousIterator_ = this;
    map_->iterators_ = this;
  }

  // Leaves the map's list, for the end.
  void leave() {
    if (map_ == nullptr) return;
    (previousIterator_ != nullptr ? previousIterator_->nextIterator_ : map_->iterators_) =
        nextIterator_;
    if (nextIterator_ != nullptr) nextIterator_->previousIterator_ = previousIterator_;
    previousIterator_ = nextIterator_ = nullptr;
    map_ = nullptr;
    node_ = nullptr;
  }

  // `node` has left the map: from it, or from before it, the iterator goes to before the next.
  void moveOn(const Node& node) {
    if (node_ != &node) return;
    node_ = node.next;
    removed_ = true;
  }

  const HashMap* map_ = nullptr;
  Node* node_ = nullptr;
  Key key_{};
  bool removed_ = false;  // the member of key_ has gone; node_ is the one that comes next
  Iterator* previousIterator_ = nullptr;
  Iterator* nextIterator_ = nullptr;
};

// A map of members as it looks to who may only read them: the members are const. By default, an
// empty one.
template <class Key, class M>
class ConstHashMap {
  using Map = HashMap<Key, M>;

 public:
  class Iterator;

  ConstHashMap() = default;
  ConstHashMap(const Map& map) : map_(&map) {}

  std::size_t size() const { return map_ != nullptr ? map_->size() : 0; }
  bool empty() const { return size() == 0; }
  bool contains(const Key& key) const { return map_ != nullptr && map_->contains(key); }
  Ptr<M const> value(const Key& key) const { return map_ != nullptr ? map_->value(key) : nullptr; }

  Iterator begin() const { return map_ != nullptr ? Iterator(*map_) : Iterator(); }
  std::default_sentinel_t end() const { return std::default_sentinel; }

 private:
  const Map* map_ = nullptr;
};

template <class Key, class M>
class ConstHashMap<Key, M>::Iterator : HashMap<Key, M>::Iterator {
  using Base = typename Map::Iterator;

 public:
  struct Entry {
    Key key;
    Ptr<M const> value;
  };

  using Base::Base;
  using Base::key;
  using Base::operator bool;
  friend bool operator==(const Iterator& it, std::default_sentinel_t) { return !it; }

  Ptr<M const> value() const { return Base::value(); }
  Entry operator*() const { return {key(), value()}; }

  Iterator& operator++() {
    Base::operator++();
    return *this;
  }
};

}  // namespace Moru
