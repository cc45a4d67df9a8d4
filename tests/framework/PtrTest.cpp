#include <gtest/gtest.h>
#include <thread>
#include <unordered_set>

#include "framework/Moru/Ptr.h"

namespace {

using Moru::create;
using Moru::Ptr;

struct Node : Moru::PtrInterface {
  Node() { Ptr<Node> taken(this); }
  ~Node() override {
    Ptr<Node> taken(this);
    ++destroyed;
  }
  static inline int destroyed = 0;
};
struct Leaf final : Node {};

TEST(Ptr, OwnsUntilTheLastGoesEvenWhenTakenInConstructionAndDestruction) {
  Node::destroyed = 0;
  auto node = create<Node>();
  EXPECT_EQ(node->references(), 1U);
  Ptr<Node const> view = node;
  node = nullptr;
  EXPECT_EQ(Node::destroyed, 0);
  view = Ptr<Node const>(view.get());  // through itself
  EXPECT_EQ(view->references(), 1U);
  view = nullptr;
  EXPECT_EQ(Node::destroyed, 1);
}

TEST(Ptr, ConvertsComparesAndCasts) {
  const Ptr<Node> leaf = create<Leaf>();
  const Ptr<Node> node = create<Node>();
  const Ptr<Node const> view = leaf;
  EXPECT_EQ(view, leaf);
  EXPECT_NE(view, node);
  EXPECT_EQ(Moru::dynamicPtrCast<Leaf>(leaf), leaf);
  EXPECT_EQ(Moru::dynamicPtrCast<Leaf>(node), nullptr);
  EXPECT_EQ(Moru::staticPtrCast<Leaf>(leaf)->references(), 3U);
  EXPECT_EQ((std::unordered_set<Ptr<Node>>{leaf, node, leaf}.size()), 2U);
  static_assert(!std::is_convertible_v<Ptr<Node const>, Ptr<Node>>);
  static_assert(!std::is_convertible_v<Ptr<Node>, Ptr<Leaf>>);
}

TEST(Ptr, CountsAtomicallyOnRequest) {
  const auto node = create<Node>();
  Moru::PtrInterface::threadSafeIs(true);
  const auto share = [&node] {
    for (int i = 0; i < 100'000; ++i) (void)Ptr<Node>(node);
  };
  std::thread other(share);
  share();
  other.join();
  Moru::PtrInterface::threadSafeIs(false);
  EXPECT_EQ(node->references(), 1U);
}

}  // namespace
