#include "Vxlan/ZepStateSm.h"

#include "Vxlan/Trace.h"

namespace Vxlan {

ZepStateSm::ZepStateSm(const Moru::Ptr<VxlanController::ZepStateV2 const>& zepState,
                       const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView)
    : zepStateClientView_(zepStateClientView) {
  zepStateIs(zepState);
  handleInitialized();
}

ZepStateSm::~ZepStateSm() { moruDoZombieReactors(true); }

void ZepStateSm::constructorCheck(
    const Moru::Ptr<VxlanController::ZepStateV2 const>& zepState,
    const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView) const {
  Moru::parameterCheck("_zepState", this->zepState(), zepState);
  Moru::parameterCheck("_zepStateClientView", zepStateClientView_, zepStateClientView);
}

void ZepStateSm::MoruZepState::onAttribute(Moru::AttributeId attribute, const void*) {
  switch (attribute) {
    case Moru::idOf<&VxlanController::ZepStateV2::convergenceInProgress>:
      machine()->handleConvergenceInProgress();
      break;
    default:
      break;
  }
}

void ZepStateSm::handleInitialized() {
  MORU_TRACE(8, " init ", initialized());
  initializedIs(true);
  handleConvergenceInProgress();
}

void ZepStateSm::handleConvergenceInProgress() {
  MORU_TRACE(8, " init ", initialized());
  if (!initialized()) return;
  const bool converging = zepState()->convergenceInProgress();
  MORU_TRACE(8, " init ", initialized(), " convergence state ", converging,
             " echo convergence state");
  if (zepStateClientView_) zepStateClientView_->convergenceInProgressIs(converging);
}

void ZepStateSm::cleanup() {
  if (!zepStateClientView_) return;
  MORU_TRACE(8, " convergence window ", zepStateClientView_->convergenceInProgress());
  zepStateClientView_->convergenceInProgressIs(false);
}

}  // namespace Vxlan
