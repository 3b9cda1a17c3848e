// The server's sockets: listens on a unix socket, and carries bytes between each
// connection and its ServerClient.
//
// Driven by the event loop. What came in during a turn is served as it is read, a bounded amount of each
// client; what goes out is written after each delivery of a turn, again a bounded amount, so that no client
// holds up another one for long. Peers are told by the credentials of their sockets.
//
// The socket has mode 0660. A socket that a database left behind is replaced; one on which somebody listens
// is not. The file is removed at the end, unless another one is there by then.
#pragma once

#include "Kem/FileDescriptor.h"
#include "Ordel/server/Server.h"

#include <list>
#include <memory>
#include <string>
#include <sys/types.h>

namespace Ordel {

class Listener : private Kem::FileDescriptorWatch {
  public:
   explicit Listener(Server& server) : server_(server) {}
   ~Listener() override;

   // Another database that starts at the same time holds the socket's folder locked for a moment.
   static constexpr int lockMilliseconds = 2000;

   // False with "path: reason" in `error`, also when somebody keeps the folder locked for longer.
   bool listen(std::string const& path, std::string& error);

  private:
   // One connection.
   class Link final : private Kem::FileDescriptorWatch {
     public:
      Link(Server& server, int socket);
      ~Link() override;

      bool isClosed() const { return isClosed_; }
      // After each delivery: writes, and reads again where reading had to pause.
      void flush();

     private:
      void onReadable() override;
      void onWritable() override {} // what comes after the delivery writes

      Server& server_;
      int const socket_;
      ServerClient& client_;
      bool isClosed_ = false;
   };

   void onReadable() override;
   bool bindSafely(std::string& error);
   void refuseForWantOfDescriptors();
   void onDeliveryEnd();

   Server& server_;
   std::string path_;
   int socket_ = -1;
   int spare_ = -1;   // a descriptor kept for telling a client that there are no more
   dev_t device_ = 0; // of the socket's file
   ino_t inode_ = 0;
   std::list<std::unique_ptr<Link>> links_;
};

} // namespace Ordel
