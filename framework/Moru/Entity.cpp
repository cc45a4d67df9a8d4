#include "framework/Moru/Entity.h"

#include "framework/Moru/Assert.h"
#include "framework/Moru/Delivery.h"

namespace Moru {

std::size_t Entity::notifiees() const {
  std::size_t count = 0;
  for (const Notifiee* each = first_; each != nullptr; each = each->next_) ++count;
  return count;
}

void Entity::notifieeIs(Notifiee& reactor) const {
  reactor.registration_ = ++registrations_;
  reactor.previous_ = last_;
  reactor.next_ = nullptr;
  (last_ != nullptr ? last_->next_ : first_) = &reactor;
  last_ = &reactor;
}

void Entity::notifieeDel(Notifiee& reactor) const {
  Delivery::skip(reactor);
  (reactor.previous_ != nullptr ? reactor.previous_->next_ : first_) = reactor.next_;
  (reactor.next_ != nullptr ? reactor.next_->previous_ : last_) = reactor.previous_;
}

Notifiee::~Notifiee() { assertThat(!isRegisteredNotifiee(), "!isRegisteredNotifiee()"); }

void Notifiee::hasNotificationActiveIs(bool active) {
  active_ = active;
  Reactive::hasNotificationActiveIs(active);
}

void Notifiee::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee()) return;
  if (registered) {
    if (zombie_ || watched() == nullptr) return;
    registeredWith_ = watched();
    registeredWith_->notifieeIs(*this);
  } else {
    registeredWith_->notifieeDel(*this);
    registeredWith_ = nullptr;
  }
}

void Notifiee::moruDoZombieReactors(bool zombie) {
  Reactive::moruDoZombieReactors(zombie);
  if (!zombie || zombie_) return;
  zombie_ = true;
  isRegisteredNotifieeIs(false);
  watchedDel();
}

}  // namespace Moru
