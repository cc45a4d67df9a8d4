#include <gtest/gtest.h>
#include <thread>
#include <unordered_set>
#include <vector>

#include "framework/Moru/Ptr.h"

namespace {

using Moru::create;
using Moru::Ptr;

struct Node : Moru::PtrInterface {
  explicit Node(int* destroyed) : destroyed_(destroyed) { Ptr<Node> taken(this); }
  ~Node() override {
    Ptr<Node> taken(this);
    ++*destroyed_;
  }
  int* destroyed_;
};
struct Leaf final : Node {
  using Node::Node;
};

TEST(Ptr, OwnsUntilTheLastGoesEvenWhenTakenInConstructionAndDestruction) {
  int destroyed = 0;
  auto node = create<Node>(&destroyed);
  EXPECT_EQ(node->references(), 1U);
  Ptr<Node const> view = node;
  node = nullptr;
  EXPECT_EQ(destroyed, 0);
  view = Ptr<Node const>(view.get());  // through itself
  EXPECT_EQ(view->references(), 1U);
  view = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(Ptr, ConvertsComparesAndCasts) {
  int destroyed = 0;
  const Ptr<Node> leaf = create<Leaf>(&destroyed);
  const Ptr<Node> node = create<Node>(&destroyed);
  const Ptr<Node const> view = leaf;
  EXPECT_EQ(view, leaf);
  EXPECT_NE(view, node);
  EXPECT_EQ(Moru::dynamicPtrCast<Leaf>(leaf), leaf);
  EXPECT_EQ(Moru::dynamicPtrCast<Leaf>(node), nullptr);
  EXPECT_EQ(Moru::staticPtrCast<Leaf>(leaf)->references(), 3U);
  EXPECT_EQ((std::unordered_set<Ptr<Node>>{leaf, node, leaf}.size()), 2U);
  static_assert(!std::is_convertible_v<Ptr<Node const>, Ptr<Node>>);
  static_assert(!std::is_convertible_v<Ptr<Node>, Ptr<Leaf>>);
  static_assert(sizeof(Ptr<Node>) == sizeof(void*));
}

TEST(Ptr, CountsAtomicallyOnRequest) {
  int destroyed = 0;
  auto node = create<Node>(&destroyed);
  Moru::PtrInterface::threadSafeIs(true);
  auto share = [&node] {
    for (int i = 0; i < 100'000; ++i) (void)Ptr<Node>(node);
  };
  std::thread other(share);
  share();
  other.join();
  Moru::PtrInterface::threadSafeIs(false);
  EXPECT_EQ(node->references(), 1U);
}

}  // namespace
