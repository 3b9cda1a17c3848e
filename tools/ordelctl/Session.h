// The connection of one run of ordelctl: connects, asks, writes, and feeds the view that is open.
//
// Every call waits until the database has answered. Only a View keeps what the database has sent. Errors are
// raised: Unreachable when there is no connection or it ends, TreeJson::Refusal for what the database
// refuses, and TreeJson::Absent for what it doesn't have.
#pragma once

#include "Kem/Time.h"
#include "Ordel/client/Connection.h"
#include "Ordel/store/Tree.h"
#include "Ordel/wire/Selector.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Ordelctl {

class View;

class Session : private Ordel::Connection {
  public:
   struct Reply {
      Ordel::Status status = Ordel::Status::done;
      std::string text; // the reason, or the answer
   };

   // Connects, for at most five seconds.
   explicit Session(std::string const& socketPath);
   ~Session() override;

   // One strict write: all of it, or nothing. The reply is done or absent; a refusal is raised.
   Reply write(std::string_view operations);
   // Asks the agent of this name, or with "" all that are connected. Absent too when the database itself
   // doesn't answer in time. A timeout of 0 means no limit.
   Reply settle(std::string_view agent, Kem::Seconds timeout);
   Reply clients();
   Reply snapshot();

   // Takes in what arrives until the condition holds, which is checked after each turn of input. False at
   // the deadline.
   bool waitUntil(std::function<bool()> const& condition, Kem::Seconds deadline = Kem::never);

  private:
   friend class View;
   // The answer to the request that was sent last; absent at the deadline.
   Reply reply(Kem::Seconds deadline = Kem::never);

   void onMounted(uint32_t mount, uint32_t node, uint16_t type, std::string_view path) override;
   void onMountDone(uint32_t mount) override;
   void onMountFailed(uint32_t mount, Ordel::Status status, std::string_view reason) override;
   void onUnmounted(uint32_t mount) override;
   void onChanges(uint64_t sequence, std::string_view operations) override;
   void onReply(uint32_t request, Ordel::Status status, std::string_view text) override;
   void onClosed(std::string_view reason) override;

   std::string const socketPath_;
   std::string failure_; // why there is no connection any more
   uint32_t lastRequest_ = 0;
   uint32_t lastMount_ = 0;
   bool isReplied_ = false;
   Reply reply_;
   View* view_ = nullptr;
};

} // namespace Ordelctl
