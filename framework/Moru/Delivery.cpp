#include "framework/Moru/Delivery.h"

#include <algorithm>
#include <vector>

#include "framework/Moru/Entity.h"

namespace Moru {

namespace {

// Of this thread: another one may meanwhile drop the last pointer to an object that it was passed.
constinit thread_local Delivery* innermost = nullptr;
constinit thread_local bool condemnedObjects = false;

std::vector<const PtrInterface*>& condemned() {
  static thread_local std::vector<const PtrInterface*> objects;
  return objects;
}

}  // namespace

// Ends the delivery that began with it. What it holds can stay in a register across the calls,
// which the delivery itself, known to all, cannot.
class Delivery::Frame {
 public:
  explicit Frame(Delivery& delivery) : outer_(innermost) {
    delivery.outer_ = outer_;
    innermost = &delivery;
  }

  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  ~Frame() {
    innermost = outer_;
    if (condemnedObjects) [[unlikely]]
      destroyCondemned();
  }

 private:
  Delivery* const outer_;
};

void Delivery::toAll(const Entity& entity, AttributeId attribute, const void* key) {
  // Whoever registers during the delivery comes after the change, and knows it already.
  const std::uint64_t last = entity.registrations_;
  Notifiee* reactor = entity.first_;
  Delivery delivery(&entity);
  const Frame frame(delivery);
  do {
    delivery.next_ = reactor->next_;
    delivery.call(*reactor, attribute, key);
    reactor = delivery.next_;
  } while (reactor != nullptr && reactor->registration_ <= last);
}

void Delivery::toOne(Notifiee& reactor, AttributeId attribute, const void* key) {
  Delivery delivery(nullptr);
  const Frame frame(delivery);
  delivery.call(reactor, attribute, key);
}

inline void Delivery::call(Notifiee& reactor, AttributeId attribute, const void* key) {
  if (!reactor.active_) return;
  calling_ = &reactor;
  reactor.onAttribute(attribute, key);
}

void Delivery::skip(const Notifiee& reactor) noexcept {
  for (Delivery* each = innermost; each != nullptr; each = each->outer_)
    if (each->next_ == &reactor) each->next_ = reactor.next_;
}

bool Delivery::uses(const Entity& entity) noexcept {
  for (const Delivery* each = innermost; each != nullptr; each = each->outer_)
    if (each->entity_ == &entity) return true;
  return false;
}

bool Delivery::uses(const Reactive& reactive) noexcept {
  for (const Delivery* each = innermost; each != nullptr; each = each->outer_)
    for (const Reactive* used = each->calling_; used != nullptr; used = used->owner())
      if (used == &reactive) return true;
  return false;
}

void Delivery::condemn(const PtrInterface& object) {
  if (object.condemned_) return;
  object.condemned_ = true;
  condemned().push_back(&object);
  condemnedObjects = true;
}

void Delivery::destroyCondemned() noexcept {
  auto& objects = condemned();
  for (;;) {
    const auto free = std::find_if(objects.begin(), objects.end(),
                                   [](const PtrInterface* object) { return !object->inUse(); });
    if (free == objects.end()) break;
    const PtrInterface* const object = *free;
    objects.erase(free);
    object->condemned_ = false;
    // A handler may have kept it after all.
    if (object->references() == 0) object->destroy();
  }
  condemnedObjects = !objects.empty();
}

void PtrInterface::lastReferenceGone() const noexcept {
  if (innermost != nullptr && inUse()) {
    Delivery::condemn(*this);
  } else if (!condemned_) {
    destroy();
  }
}

void PtrInterface::destroy() const noexcept {
  references_.store(beingDestroyed, std::memory_order_relaxed);
  delete this;
}

bool Entity::inUse() const noexcept { return Delivery::uses(*this); }

bool Reactive::inUse() const noexcept { return Delivery::uses(*this); }

}  // namespace Moru
