// The collections: one body of tests for what they share, against a plain model.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <rapidcheck/gtest.h>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "framework/Moru/Collections/GroupedRbTreeMap.h"
#include "framework/Moru/Collections/HashMap.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "framework/Moru/Collections/RbTreeMap.h"

namespace {

using Moru::create;
using Moru::Ptr;

struct Item final : Moru::PtrInterface {
  Item(int key, int value) : key(key), value(value) {}
  int fwkKey() const { return key; }
  const int key;
  const int value;
};

// Gives the map of members the interface of the other two.
struct Members : Moru::HashMap<int, Item> {
  bool is(int key, int value) { return HashMap::is(create<Item>(key, value)); }
};

// A number in a group that it shares with every `groups`th other, and that counts its copies: what
// is made, and what is there, the room that a map takes for its keys.
template <int groups>
struct Grouped {
  struct Group {
    static constexpr int max = groups - 1;
    std::size_t value() const { return static_cast<std::size_t>(number); }
    int number;
  };
  Grouped(int number = 0) : number(number) { ++living; }
  Grouped(const Grouped& other) : Grouped(other.number) { ++copies; }
  ~Grouped() { --living; }
  Grouped& operator=(const Grouped& other) {
    number = other.number;
    ++copies;
    return *this;
  }
  operator int() const { return number; }
  Group group() const { return {static_cast<int>(static_cast<unsigned>(number) % groups)}; }
  std::size_t hash() const noexcept { return static_cast<std::size_t>(number); }
  int number;
  static inline std::size_t copies = 0;
  static inline int living = 0;
};
using GroupedMap = Moru::GroupedRbTreeMap<Grouped<3>, int>;

// Gives the walk over a group the interface of a walk over all: there is but one group.
struct OneGroup : Moru::GroupedRbTreeMap<Grouped<1>, int> {
  struct Walk : GroupIterator {
    explicit Walk(const OneGroup& map) : GroupIterator(map.keysOfGroup({0})), map(&map) {}
    int value() const { return *map->find(key()); }
    const OneGroup* map;
  };
  Walk begin() const { return Walk(*this); }
};

// A different number for every number, without any order.
int scattered(std::uint32_t number) {
  number = (number ^ number >> 16) * 0x85ebca6bU;
  number = (number ^ number >> 13) * 0xc2b2ae35U;
  return static_cast<int>(number ^ number >> 16);
}

int plain(int value) { return value; }
int plain(const Ptr<Item>& item) { return item->value; }

// One action of a walk. The number means a key, an iterator or a value, as the action needs it.
struct Action {
  enum Kind { put, remove, clear, park, step, drop } kind = put;
  int number = 0;
};

void showValue(const Action& action, std::ostream& out) {
  constexpr const char* names[] = {"put", "remove", "clear", "park", "step", "drop"};
  out << names[action.kind] << ' ' << action.number;
}

rc::Gen<Action> anyAction(int keys) {
  const auto kind = rc::gen::weightedElement<Action::Kind>({{35, Action::put},
                                                            {25, Action::remove},
                                                            {1, Action::clear},
                                                            {9, Action::park},
                                                            {27, Action::step},
                                                            {3, Action::drop}});
  return rc::gen::build<Action>(rc::gen::set(&Action::kind, kind),
                                rc::gen::set(&Action::number, rc::gen::inRange(0, keys)));
}

// A map beside a std::map that also knows when each element came, and iterators parked on the way.
template <class Map>
class World {
 public:
  void act(const Action& action) {
    const auto [kind, number] = action;
    if (kind == Action::put) {
      RC_ASSERT(map_.is(number, ++values_) == !model_.contains(number));
      if (!model_.contains(number)) model_[number].serial = values_;
      model_[number].value = values_;
    } else if (kind == Action::remove) {
      RC_ASSERT(static_cast<bool>(map_.del(number)) == (model_.erase(number) == 1));
    } else if (kind == Action::clear) {
      map_.delAll();
      model_.clear();
    } else if (kind == Action::park) {
      parked_.push_back({map_.begin(), {}, {}});
      for (const auto& [key, element] : model_) parked_.back().owed.insert(element.serial);
      arrive(parked_.back());
    } else if (!parked_.empty()) {
      const std::size_t which = static_cast<std::size_t>(number) % parked_.size();
      if (kind == Action::step) step(parked_[which]);
      if (kind == Action::drop) parked_.erase(parked_.begin());
    }
    check(action.number);
  }

  // Every parked iterator comes to its end, having visited all that stayed.
  void finish() {
    for (Parked& each : parked_) {
      while (each.it) step(each);
      for (const auto& [key, element] : model_) RC_ASSERT(!each.owed.contains(element.serial));
    }
  }

 private:
  struct Element {
    int value = 0;
    int serial = 0;
  };
  struct Parked {
    decltype(std::declval<Map&>().begin()) it;
    std::set<int> owed;  // what was there from the beginning and has not been visited
    std::set<int> visited;
  };

  void step(Parked& parked) {
    const bool isAtEnd = !parked.it;
    if constexpr (requires { parked.it.ahead(1)->key; })
      if (const auto next = parked.it.ahead(1))
        RC_ASSERT(next->key == model_.upper_bound(parked.it.key())->first);
    ++parked.it;
    RC_ASSERT(!isAtEnd || !parked.it);
    arrive(parked);
  }

  void arrive(Parked& parked) {
    if (!parked.it) return;
    const auto element = model_.find(parked.it.key());
    RC_ASSERT(element != model_.end());  // nothing that has gone is visited
    RC_ASSERT(plain(parked.it.value()) == element->second.value);
    RC_ASSERT(parked.visited.insert(element->second.serial).second);  // nor anything twice
    parked.owed.erase(element->second.serial);
  }

  void check(int key) {
    RC_ASSERT(map_.size() == model_.size());
    const auto element = model_.find(key);
    RC_ASSERT(map_.contains(key) == (element != model_.end()));
    if (element != model_.end()) RC_ASSERT(plain(map_.value(key)) == element->second.value);
    if constexpr (requires { map_.from(key); }) {
      const auto expected = model_.lower_bound(key);
      const auto it = map_.from(key);
      RC_ASSERT(static_cast<bool>(it) == (expected != model_.end()));
      if (it) RC_ASSERT(it.key() == expected->first);
    }
  }

  Map map_;
  std::map<int, Element> model_;
  std::vector<Parked> parked_;
  int values_ = 0;
};

template <class Map>
class Collections : public testing::Test {};
using Maps =
    testing::Types<Members, Moru::HashMap2018<int, int>, Moru::RbTreeMap<int, int>, GroupedMap>;
TYPED_TEST_SUITE(Collections, Maps);

template <class Map>
void walkAtRandom() {
  for (const int keys : {6, 1'000}) {
    EXPECT_TRUE(rc::check("a random walk over " + std::to_string(keys) + " keys", [keys] {
      World<Map> world;
      // Some maps begin with more than one block or chunk.
      const int preset = *rc::gen::element(0, 0, keys);
      for (int i = 0; i < preset; ++i) world.act({Action::put, i * 7 % keys});
      for (const Action& action : *rc::gen::container<std::vector<Action>>(anyAction(keys)))
        world.act(action);
      world.finish();
    }));
  }
}

TYPED_TEST(Collections, AgreeWithAPlainModelWhileIteratorsAreParked) { walkAtRandom<TypeParam>(); }

TEST(GroupedRbTreeMap, AgreesWithAPlainModelWhileWalksOfAGroupAreParked) {
  walkAtRandom<OneGroup>();
}

// What comes in the walk's own group is visited if it lies ahead; what comes costs no more than
// itself, in whichever group.
TEST(GroupedRbTreeMap, WalksAGroupInOrderAtTheCostOfItsOwnAndOfWhatComes) {
  constexpr int count = 6'000;
  for (const int group : {0, 1}) {
    GroupedMap map;
    for (int i = 0; i < count; ++i) map.is(scattered(static_cast<std::uint32_t>(i)), i);
    Grouped<3>::copies = 0;
    int added = 0;
    std::vector<int> visited;
    for (auto it = map.keysOfGroup({0}); it; ++it) {
      visited.push_back(it.key());
      const int next = it.key() + 3 + group;  // in the walk's group, or in another one
      if (added < count && it.key() < 1'000'000'000 && map.is(next, 0)) ++added;
      map.del(it.key());
    }
    EXPECT_LT(Grouped<3>::copies, 1000U * count) << "the sum of the blocks that are moved";
    EXPECT_TRUE(std::is_sorted(visited.begin(), visited.end()));
    EXPECT_EQ(std::adjacent_find(visited.begin(), visited.end()), visited.end());
    EXPECT_FALSE(map.keysOfGroup({0})) << "all were visited, and removed";
    EXPECT_GE(added, count / 10);
  }
}

TYPED_TEST(Collections, StaySoundThroughGrowthAndMassDeletion) {
  constexpr int count = 20'000;
  TypeParam map;
  map.is(0, 0);
  const auto* const first = map.find(0);
  for (int i = 1; i < count; ++i) map.is(i * 7919 % count, i);
  EXPECT_EQ(map.find(0), first) << "growth moves nothing";
  for (auto it = map.begin(); it; ++it)
    if (it.key() % 100 != 0) map.del(it.key());
  int visited = 0;
  for (const auto& [key, value] : map) visited += key % 100 == 0 ? 1 : count;
  EXPECT_EQ(visited, count / 100);
  for (int i = 0; i < count; ++i) EXPECT_EQ(map.contains(i), i % 100 == 0);
}

TYPED_TEST(Collections, StaySoundThroughALongComingAndGoing) {
  constexpr std::uint32_t steps = 200'000;
  // Close to the most that an index of 2 and of 16 buckets holds before it grows: of few buckets
  // every one soon has been full.
  for (const std::uint32_t present : {17, 140}) {
    TypeParam map;
    for (std::uint32_t i = 0; i < steps; ++i) {
      map.is(scattered(i), 0);
      ASSERT_EQ(static_cast<bool>(map.del(scattered(i - present))), i >= present);
      ASSERT_FALSE(map.contains(scattered(i + steps))) << "and that is found in finite time";
    }
    EXPECT_EQ(map.size(), present);
  }
}

TYPED_TEST(Collections, RefuseTheValueOfARemovedElement) {
  TypeParam map;
  map.is(-1, 10);  // a key that looks like the number of no slot
  map.is(2, 20);
  auto it = map.begin();
  map.del(-1);
  EXPECT_EQ(it.key(), -1);
  EXPECT_DEATH(it.value(), "the iterator stands on");
  map.is(3, 30);  // which may take its place
  EXPECT_DEATH(it.value(), "the iterator stands on");
  map.del(3);
  ++it;
  EXPECT_EQ(plain(it.value()), 20);
  ++it;
  EXPECT_FALSE(it);
  ++it;
  EXPECT_FALSE(it) << "the end stays the end";
  EXPECT_DEATH(it.value(), "the iterator stands on");
}

// A value that reaches back into its map when it goes.
struct Reentrant final : Moru::PtrInterface {
  Reentrant(int key, std::function<void(int)> gone) : key(key), gone(std::move(gone)) {}
  ~Reentrant() override { gone(key); }
  int fwkKey() const { return key; }
  const int key;
  const std::function<void(int)> gone;
};

// A value that can only be copied, and so comes to an end in its place, too.
struct Unmovable {
  ~Unmovable() {
    if (gone) gone();
  }
  std::function<void()> gone;
};

template <class Map>
void put(Map& map, int key, const std::function<void(int)>& gone) {
  const auto value = create<Reentrant>(key, gone);
  if constexpr (requires { map.is(value); })
    map.is(value);
  else
    map.is(key, value);
}

template <class Map>
class CollectionsOfObjects : public testing::Test {};
using MapsOfObjects =
    testing::Types<Moru::HashMap<int, Reentrant>, Moru::HashMap2018<int, Ptr<Reentrant>>,
                   Moru::RbTreeMap<int, Ptr<Reentrant>>,
                   Moru::GroupedRbTreeMap<Grouped<3>, Ptr<Reentrant>>>;
TYPED_TEST_SUITE(CollectionsOfObjects, MapsOfObjects);

TYPED_TEST(CollectionsOfObjects, MayBeReenteredByWhatTheyRelease) {
  for (const bool clear : {true, false}) {
    std::vector<int> gone;
    {
      TypeParam map;
      const auto reenter = [&](int key) {
        gone.push_back(key);
        EXPECT_FALSE(map.contains(key)) << "unlinked before it is destroyed";
        for (auto it = map.begin(); it; ++it) EXPECT_NE(it.key(), key);
        if (key < 10) map.del(key + 1);
        if (key == 0) put(map, 100, [&](int added) { gone.push_back(added); });
      };
      for (int key = 0; key < 10; ++key) put(map, key, reenter);
      map.del(3);
      EXPECT_EQ(map.size(), 3U);
      if (clear) map.delAll();
      EXPECT_LE(map.size(), clear ? 1U : 3U) << "the end of the map clears it";
    }
    EXPECT_THAT(gone, testing::UnorderedElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 100));
  }
}

TYPED_TEST(CollectionsOfObjects, AreClearedInFiniteTime) {
  bool adding = true;
  TypeParam map;
  const std::function<void(int)> addMore = [&](int key) {
    for (const int each : {key, key + 2})
      if (adding) put(map, each, addMore);
  };
  for (const int key : {0, 1}) put(map, key, addMore);
  map.delAll();
  adding = false;
  for (auto it = map.begin(); it; ++it) EXPECT_EQ(it.value()->key, it.key());
}

template <class Map>
void testUnmovable() {
  Map map;
  int ends = 0;
  map.is(1, {});
  map.find(1)->gone = [&] {
    ++ends;
    EXPECT_FALSE(map.begin() || map.contains(1));
  };
  map.del(1);
  EXPECT_EQ(ends, 2);
}

TEST(CollectionsOfValues, HaveUnlinkedWhatIsDestroyedInItsPlace) {
  testUnmovable<Moru::HashMap2018<int, Unmovable>>();
  testUnmovable<Moru::RbTreeMap<int, Unmovable>>();
  testUnmovable<Moru::GroupedRbTreeMap<Grouped<3>, Unmovable>>();
}

TEST(RbTreeMap, GivesRoomBackInWhateverOrderItIsEmptied) {
  constexpr int count = 20'000;
  for (const bool ascending : {true, false}) {
    Moru::RbTreeMap<Grouped<1>, int> map;
    for (int i = 0; i < count; ++i) map.is(i, i);
    for (int i = 0; i < count; ++i) {
      const int key = ascending ? i : count - 1 - i;
      if (key % 256 != 0) map.del(key);
    }
    EXPECT_LT(Grouped<1>::living, 20 * static_cast<int>(map.size()));
    const int* const freed = map.find(256);
    map.del(256);
    map.is(257, 0);
    EXPECT_EQ(map.find(257), freed);
    int last = -1;
    for (const auto& [key, value] : map) EXPECT_GT(key.number, std::exchange(last, key.number));
  }
}

TEST(HashMap, KeepsTheOrderOfInsertionAndIteratorsThatOutliveIt) {
  alignas(Members) std::array<std::byte, sizeof(Members)> place{};
  auto* const map = new (place.data()) Members;
  for (const int key : {5, 3, 9, 1}) map->is(key, key);
  map->is(3, 33);  // in its place
  map->del(5);
  map->is(5, 5);  // at the end
  std::vector<int> order;
  for (const auto& [key, item] : *map) order.push_back(item->value);
  EXPECT_THAT(order, testing::ElementsAre(33, 9, 1, 5));
  const Moru::ConstHashMap<int, Item> view(*map);
  EXPECT_TRUE(view.size() == 4 && view.contains(9) && view.value(3)->value == 33 && !view.value(4));
  {
    auto it = map->begin();
    const auto& same = it;
    it = same;
    EXPECT_EQ(it.value()->value, 33);
    auto copy = view.begin();
    ++copy;
    map->~Members();
    place.fill(std::byte{0xff});
    EXPECT_FALSE(it);
    EXPECT_FALSE(++copy);
    EXPECT_EQ(copy.key(), 9);
    it = Members().begin();
  }
  EXPECT_THAT(place, testing::Each(std::byte{0xff})) << "they do not reach for it when they go";
  const Moru::ConstHashMap<int, Item> none;
  EXPECT_TRUE(none.empty() && !none.begin() && !none.contains(9) && !none.value(9));
}

}  // namespace
