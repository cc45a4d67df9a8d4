// Watches a VTI from outside the project: one header of each kind, and code from the library.
#include <iostream>

#include "framework/Moru/ActivityFacility.h"
#include "framework/Moru/Trace.h"
#include "model/Vxlan/VtiStatusDir.h"

namespace {

class MoruVtiStatus final : public Vxlan::VtiStatus::NotifieeConst {
 public:
  void onAttribute(Moru::AttributeId attribute, const void*) override {
    if (attribute == Moru::idOf<&Vxlan::VtiStatus::localVtepAddr>)
      std::cout << notifier()->intfId() << " is at " << notifier()->localVtepAddr() << '\n';
  }
};

}  // namespace

int main() {
  const auto dir = Moru::create<Vxlan::VtiStatusDir>();
  const auto status = dir->vtiStatusIs(Vorn::IntfId("Vxlan1"));
  const auto reactor = Moru::create<MoruVtiStatus>();
  reactor->notifierIs(status);
  reactor->hasNotificationActiveIs(true);
  status->localVtepAddrIs(*Vorn::IpAddr::parse("10.0.0.1"));
  return Moru::ActivityFacility::current()->nextDue() == Moru::Clock::never ? 0 : 1;
}
