#include "Ordel/server/ClientReport.h"

#include "Ordel/server/Server.h"

#include <algorithm>
#include <cstdio>

namespace Ordel {

namespace {

// The bytes of the UTF-8 character that begins there; 0 where none does (RFC 3629).
size_t characterBytes(std::string_view text) {
   auto const byte = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
   auto const isNext = [&](size_t i, unsigned low = 0x80, unsigned high = 0xbf) {
      return byte(i) >= low && byte(i) <= high;
   };
   unsigned const first = byte(0);
   if (first < 0x80)
      return 1;
   if (first >= 0xc2 && first <= 0xdf)
      return isNext(1) ? 2 : 0;
   if (first >= 0xe0 && first <= 0xef)
      return isNext(1, first == 0xe0 ? 0xa0 : 0x80, first == 0xed ? 0x9f : 0xbf) && isNext(2) ? 3 : 0;
   if (first >= 0xf0 && first <= 0xf4)
      return isNext(1, first == 0xf0 ? 0x90 : 0x80, first == 0xf4 ? 0x8f : 0xbf) && isNext(2) && isNext(3)
                 ? 4
                 : 0;
   return 0;
}

std::string quoted(std::string_view text) {
   std::string out = "\"";
   while (!text.empty()) {
      size_t const count = characterBytes(text);
      char const c = text[0];
      if (count == 0) {
         out += "\\ufffd"; // a byte that stands for nothing
         text.remove_prefix(1);
         continue;
      }
      if (c == '"' || c == '\\') {
         out += '\\';
         out += c;
      } else if (count == 1 && static_cast<unsigned char>(c) < ' ') {
         char escaped[7];
         std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
         out += escaped;
      } else {
         out += text.substr(0, count);
      }
      text.remove_prefix(count);
   }
   return out + '"';
}

std::string modeOf(ServerMount const& mount) {
   std::string mode = mount.flags & mountWrite ? "w" : "r";
   if (mount.flags & mountCreate)
      mode += 'c';
   if (mount.flags & mountAwait)
      mode += 'a';
   if (mount.flags & mountShallow)
      mode += 's';
   return mode;
}

} // namespace

std::string clientReport(Server const& server) {
   constexpr size_t allMountsBytes = 2u << 20; // shared evenly
   size_t const mountsBytes = allMountsBytes / std::max<size_t>(server.clients().size(), 1);
   std::string out = "[";
   for (auto const& client : server.clients()) {
      if (!client->isWelcome())
         continue;
      out += out.size() > 1 ? ", " : "";
      out += "{\"name\": " + quoted(client->name());
      out += ", \"pid\": " + std::to_string(client->peer().pid);
      out += ", \"uid\": " + std::to_string(client->peer().uid);
      out += std::string(", \"role\": ") + (client->role() == Role::agent ? "\"agent\"" : "\"tool\"");
      out += ", \"mounts\": [";
      size_t shownCount = 0;
      size_t const mountsEnd = out.size() + mountsBytes;
      for (auto const& [number, mount] : client->mounts()) {
         std::string const text = "{\"path\": " + quoted(mount->text) + ", \"type\": " + quoted(mount->type) +
                                  ", \"mode\": " + quoted(modeOf(*mount)) + "}";
         if (out.size() + text.size() > mountsEnd)
            break;
         out += (shownCount > 0 ? ", " : "") + text;
         ++shownCount;
      }
      out += "]";
      if (shownCount < client->mounts().size())
         out += ", \"mountsLeftOut\": " + std::to_string(client->mounts().size() - shownCount);
      out += ", \"pendingBytes\": " + std::to_string(client->pendingBytes());
      out += ", \"pendingMarks\": " + std::to_string(client->pending().markCount());
      out += ", \"receivedBytes\": " + std::to_string(client->receivedBytes());
      out += ", \"receivedOperations\": " + std::to_string(client->receivedOperations());
      out += ", \"refusedWrites\": " + std::to_string(client->refusedWrites());
      out += ", \"sentBytes\": " + std::to_string(client->sentBytes()) + "}";
   }
   return out + "]";
}

} // namespace Ordel
