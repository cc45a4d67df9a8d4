#include "Vxlan/ZepStateSm.h"

#include <utility>

#include "Vxlan/Trace.h"

namespace Vxlan {

ZepStateSm::ZepStateSm(Moru::Ptr<VxlanController::ZepStateClientViewV2> zepStateClientView)
    : zepStateClientView_(std::move(zepStateClientView)) {}

ZepStateSm::ZepStateSm(const Moru::Ptr<VxlanController::ZepStateV2 const>& zepState,
                       const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView)
    : ZepStateSm(zepStateClientView) {
  zepStateIs(zepState);
  handleInitialized();
}

ZepStateSm::~ZepStateSm() {
  moruDoZombieReactors(true);
  if (isCleanedUp_) return;
  try {
    cleanup();
  } catch (...) {  // of a watcher of the view, which has been written: no destructor can pass it on
  }
}

void ZepStateSm::doCleanup() {
  isCleanedUp_ = true;
  cleanup();
}

void ZepStateSm::constructorCheck(
    const Moru::Ptr<VxlanController::ZepStateV2 const>& zepState,
    const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView) const {
  Moru::parameterCheck("_zepState", this->zepState(), zepState);
  Moru::parameterCheck("_zepStateClientView", zepStateClientView_, zepStateClientView);
}

void ZepStateSm::MoruZepState::onAttribute(Moru::AttributeId attribute, const void*) {
  switch (attribute) {
    case Moru::idOf<&VxlanController::ZepStateV2::convergenceInProgress>:
      forward(&MoruZepState::moru_handleZepState_convergenceInProgress);
  }
}

void ZepStateSm::MoruZepState::moru_handleZepState_convergenceInProgress() {
  machine()->handleConvergenceInProgress();
}

void ZepStateSm::handleInitialized() {
  MORU_TRACE(8, " init ", initialized());
  initializedIs(true);
  handleConvergenceInProgress();
}

void ZepStateSm::handleConvergenceInProgress() {
  MORU_TRACE(8, " init ", initialized());
  if (!initialized()) return;
  const bool converging = zepState() && zepState()->convergenceInProgress();
  MORU_TRACE(8, " init ", initialized(), " convergence state ", converging,
             " echo convergence state");
  // Written whether or not it differs: the echo itself is what the root waits for.
  if (zepStateClientView_) zepStateClientView_->convergenceInProgressIs(converging);
}

// Without a state of the controller nobody would end the window, and hosts that are withdrawn would
// stay marked for ever. Its end begins the deferred deletions.
void ZepStateSm::cleanup() {
  MORU_TRACE(8, " convergence window ",
             zepStateClientView_ && zepStateClientView_->convergenceInProgress());
  if (zepStateClientView_) zepStateClientView_->convergenceInProgressIs(false);
}

}  // namespace Vxlan
