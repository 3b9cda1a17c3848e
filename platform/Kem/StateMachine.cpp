#include "Kem/StateMachine.h"

#include "Kem/Trace.h"

#include <cstdlib>
#include <cxxabi.h>
#include <map>
#include <string>
#include <typeindex>

namespace Kem {

namespace {
TraceFacility machineTrace("KemStateMachine");
}

char const* StateMachine::fwkType() const {
   static auto* const names = new std::map<std::type_index, std::string>;
   auto const [at, isNew] = names->try_emplace(typeid(*this), typeid(*this).name());
   if (isNew) {
      int status = 0;
      if (char* const name = abi::__cxa_demangle(at->second.c_str(), nullptr, nullptr, &status)) {
         at->second = name;
         std::free(name);
      }
   }
   return at->second.c_str();
}

void StateMachine::initializedIs(bool initialized) {
   if (initialized == this->initialized())
      return;
   KEM_TRACE(machineTrace, 8,
             fwkType() << (initialized ? " is initialized" : " is not initialized any more"));
   flagIs(initializedFlag, initialized);
}

void StateMachine::hasNotificationActiveIs(bool isActive) {
   if (isActive == hasNotificationActive())
      return;
   flagIs(notificationActiveFlag, isActive);
   forEachPart({PartVisitor::Operation::notificationActive, isActive});
}

void StateMachine::kemDoZombieReactors(bool areZombies) {
   if (areZombies == isZombie())
      return;
   flagIs(zombieFlag, areZombies);
   forEachPart({PartVisitor::Operation::zombie, areZombies});
}

void StateMachine::isNondestructingIs(bool isNondestructing) {
   flagIs(nondestructingFlag, isNondestructing);
   forEachPart({PartVisitor::Operation::nondestructing, isNondestructing});
}

void StateMachine::tearDown() {
   KEM_TRACE(machineTrace, 8,
             fwkType() << " is torn down" << (isNondestructing() ? ", its outputs stay" : ""));
   kemDoZombieReactors(true);
   if (!isNondestructing())
      doPrepareToDie();
}

void StateMachine::onZeroReferences() {
   kemDoZombieReactors(true);
   PtrInterface::onZeroReferences();
}

bool StateMachine::isSkipped() const {
   if (!isZombie())
      KEM_TRACE(machineTrace, 8, fwkType() << ": skipping because not initialized yet");
   return false;
}

} // namespace Kem
