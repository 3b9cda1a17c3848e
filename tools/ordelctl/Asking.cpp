#include "Asking.h"
#include "Failures.h"
#include "Kem/Printable.h"
#include "Ordel/wire/Protocol.h"
#include "treejson/Error.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <vector>

namespace Ordelctl {

bool isAgentName(std::string_view name) {
   return !name.empty() && name.size() <= Ordel::maxNameBytes;
}

void settle(Session& session, std::string_view agent, Kem::Seconds timeout) {
   Session::Reply const reply = session.settle(agent, timeout);
   if (reply.status != Ordel::Status::done)
      throw TreeJson::Absent(reply.text.empty() ? "not settled in time" : reply.text);
}

std::string clients(Session& session) {
   return Kem::printableJson(session.clients().text);
}

std::string clientTable(std::string const& json) {
   constexpr size_t columnCount = 7;
   using Row = std::array<std::string, columnCount>;
   std::vector<Row> rows{{"NAME", "ROLE", "PID", "UID", "MOUNTS", "PENDING BYTES", "REFUSED WRITES"}};
   try {
      for (nlohmann::json const& client : nlohmann::json::parse(json))
         rows.push_back({Kem::printable(client.at("name").get<std::string>()),
                         Kem::printable(client.at("role").get<std::string>()), client.at("pid").dump(),
                         client.at("uid").dump(), std::to_string(client.at("mounts").size()),
                         client.at("pendingBytes").dump(), client.at("refusedWrites").dump()});
   } catch (nlohmann::json::exception const& error) {
      throw Unreachable(std::string("the database's answer can't be read: ") + error.what());
   }
   Row width; // as many spaces as the widest cell
   for (size_t column = 0; column < columnCount; ++column)
      for (Row const& row : rows)
         width[column].resize(std::max(width[column].size(), row[column].size()), ' ');
   constexpr size_t textColumns = 2; // these to the left, numbers to the right
   std::string text;
   for (Row const& row : rows) {
      for (size_t column = 0; column < columnCount; ++column) {
         std::string const padding(width[column].size() - row[column].size(), ' ');
         text += column == 0 ? "" : "  ";
         text += column < textColumns ? row[column] + padding : padding + row[column];
      }
      text += '\n';
   }
   return text;
}

std::string mountList(std::string const& json) {
   std::string text;
   try {
      for (nlohmann::json const& client : nlohmann::json::parse(json)) {
         if (client.at("mounts").empty())
            continue;
         text += '\n' + Kem::printable(client.at("name").get<std::string>()) + ' ' + client.at("pid").dump() +
                 ", " + std::to_string(client.at("mounts").size()) + " mounts:\n";
         for (nlohmann::json const& mount : client.at("mounts")) {
            std::string mode = mount.at("mode").get<std::string>();
            mode.resize(std::max<size_t>(mode.size(), 4), ' ');
            text += "  " + mode + "  " + Kem::printable(mount.at("path").get<std::string>()) + "  " +
                    Kem::printable(mount.at("type").get<std::string>()) + '\n';
         }
      }
   } catch (nlohmann::json::exception const& error) {
      throw Unreachable(std::string("the database's answer can't be read: ") + error.what());
   }
   return text;
}

void snapshot(Session& session) {
   session.snapshot();
}

} // namespace Ordelctl
