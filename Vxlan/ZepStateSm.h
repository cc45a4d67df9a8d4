// Echoes the controller's convergence state into the client's own view of it.
//
//   ZepStateV2 (convergenceInProgress) ──> ZepStateSm ──> ZepStateClientViewV2
//
// Event source: a change of the controller's state. The machine exists while the controller has a
// state entry and the client is in controller mode. When it goes, any convergence window ends with
// it: nobody would be left to end it.
#pragma once

#include "framework/Moru/Children.h"
#include "framework/Moru/Input.h"
#include "model/VxlanController/ZepStateClientViewV2.h"
#include "model/VxlanController/ZepStateV2.h"

namespace Vxlan {

class ZepStateSm final : public Moru::Machine {
 public:
  // Reads `zepState` and is the only one to write `zepStateClientView`; either may be null, and a
  // controller without a state does not converge.
  ZepStateSm(const Moru::Ptr<VxlanController::ZepStateV2 const>& zepState,
             const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView);
  ~ZepStateSm() override;

  // Throws NameInUseException unless the machine was made from these.
  void constructorCheck(
      const Moru::Ptr<VxlanController::ZepStateV2 const>& zepState,
      const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView) const;

  // The root has dropped the machine. What runs then need not wait for the destructor, and what a
  // watcher of the view throws can pass.
  void doCleanup();

  class MoruZepState
      : public Moru::Reactor<VxlanController::ZepStateV2::NotifieeConst, ZepStateSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleZepState_convergenceInProgress();
  };

  Moru::Input<MoruZepState> zepState{this};
  Moru::Input<MoruZepState>::Is zepStateIs{zepState};
  Moru::Input<MoruZepState>::Del zepStateDel{zepState};

  const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView() const {
    return zepStateClientView_;
  }

  void handleInitialized();
  void handleConvergenceInProgress();

  // Ends the convergence window: when the root drops the machine, or else in the destructor, as of
  // a machine whose construction threw.
  void cleanup();

 private:
  // The constructor goes on from this one: what it throws is then followed by the destructor.
  explicit ZepStateSm(Moru::Ptr<VxlanController::ZepStateClientViewV2> zepStateClientView);

  bool isCleanedUp_ = false;
  const Moru::Ptr<VxlanController::ZepStateClientViewV2> zepStateClientView_;
};

}  // namespace Vxlan
