// Must not compile: its override can't be reached from the base, so it would never be called. A test checks
// the compiler's message.
#include "records/Sample/Store.h"

namespace {

class HearsInPrivate final : Sample::Store::NotifieeConst {
  public:
   HearsInPrivate() : NotifieeConst(this) {}

  private:
   void onSlogan() override {}
};

HearsInPrivate reactor;

} // namespace
