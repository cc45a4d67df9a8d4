#include "framework/Moru/Reactive.h"

namespace Moru {

Part::Part(Reactive* owner) : owner_(owner) {
  Part** end = &owner_->parts_;
  while (*end != nullptr) end = &(*end)->next_;
  *end = this;
}

Part::~Part() {
  Part** link = &owner_->parts_;
  while (*link != this) link = &(*link)->next_;
  *link = next_;
}

void Part::adopt(Reactive& member) const { member.owner_ = owner_; }

void Part::retire(Reactive& member) {
  member.moruDoZombieReactors(true);
  member.owner_ = nullptr;
}

void Reactive::hasNotificationActiveIs(bool active) {
  for (Part* part = parts_; part != nullptr; part = part->next_)
    part->hasNotificationActiveIs(active);
}

void Reactive::moruDoZombieReactors(bool zombie) {
  for (Part* part = parts_; part != nullptr; part = part->next_) part->moruDoZombieReactors(zombie);
}

}  // namespace Moru
