#include "Commands.h"

#include "RowText.h"

#include "Kem/Activity.h"
#include "Kem/Printable.h"
#include "Kem/StandardStreams.h"
#include "Kem/String.h"
#include "Plaze/KeyShadow.h"
#include "Plaze/TablePath.h"
#include "Plaze/TableWatch.h"
#include "Plaze/Writer.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>

namespace Plazectl {

namespace {

using Json = nlohmann::ordered_json;

struct NaturalOrder {
   bool operator()(std::string const& a, std::string const& b) const { return Kem::compareNatural(a, b) < 0; }
};

std::string quoted(std::string const& text) {
   return Kem::printableJson(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string dumped(Json const& json) {
   return Kem::printableJson(json.dump(3, ' ', false, Json::error_handler_t::replace));
}

// Opens a table for reading; raises the reason when that fails.
Plaze::Reader opened(std::string const& file) {
   Plaze::Reader reader(file);
   switch (reader.refresh()) {
   case Plaze::Reader::State::good:
      return reader;
   case Plaze::Reader::State::absent:
      throw Failure(exitNo, file + ": there is no table of that name");
   case Plaze::Reader::State::refused:
      break;
   }
   throw Failure(exitRefused, reader.reason());
}

// Also checks that this program knows the layout: the rows of another release can't be read.
Plaze::TableType const& typeOf(Plaze::Shape const& shape, std::string const& file) {
   auto const& type = typeNamed(shape.typeName, file);
   if (type.shape() != shape)
      throw Failure(exitRefused, file + ": holds " + shape.typeName + " of another release");
   return type;
}

struct Rows {
   std::map<std::string, std::string, NaturalOrder> values; // JSON by the text of the key
   size_t unreadable = 0;
};

Rows rowsOf(Plaze::Reader const& reader, Plaze::TableType const& type) {
   Rows rows;
   Plaze::Entry entry;
   uint64_t sequence;
   for (uint32_t slot = 0; slot < reader.capacity(); ++slot) {
      auto const result = reader.read(slot, entry, sequence);
      if (result == Plaze::Reader::Result::free)
         continue;
      if (result == Plaze::Reader::Result::entry && isRow(type, entry.key, entry.value))
         rows.values[keyText(type, entry.key)] = valueJson(type, entry.value);
      else
         ++rows.unreadable;
   }
   return rows;
}

Json infoOf(Plaze::Reader const& reader, std::string const& path) {
   auto const& file = reader.file();
   size_t used = 0, unreadable = 0;
   Plaze::Entry entry;
   uint64_t sequence;
   for (uint32_t slot = 0; slot < reader.capacity(); ++slot) {
      auto const result = reader.read(slot, entry, sequence);
      used += result == Plaze::Reader::Result::entry;
      unreadable += result == Plaze::Reader::Result::torn || result == Plaze::Reader::Result::damaged;
   }
   Json info;
   info["path"] = path;
   info["file"] = reader.path();
   info["type"] = file.shape().typeName;
   auto const* const type = Plaze::tableType(file.shape().typeName);
   info["isReadable"] = type && type->shape() == file.shape();
   info["entries"] = used;
   info["unreadableEntries"] = unreadable;
   info["capacity"] = file.header().capacity;
   info["keyBytes"] = file.header().keyBytes;
   info["valueBytes"] = file.header().valueBytes;
   info["fileBytes"] = file.places().fileBytes();
   info["generation"] = file.header().generation;
   info["changes"] = reader.change();
   info["writer"] = file.writerPid().load(std::memory_order_relaxed);
   return info;
}

} // namespace

std::string Place::file(std::string const& path) const {
   for (auto const& why : {Plaze::whyNotSystemName(system), Plaze::whyNotPath(path)})
      if (!why.empty())
         throw Failure(exitUsage, why);
   return directory() + "/" + path;
}

int ls(Place const& place, std::ostream& out) {
   if (std::string const why = Plaze::whyNotSystemName(place.system); !why.empty())
      throw Failure(exitUsage, why);
   std::error_code error;
   std::filesystem::recursive_directory_iterator at(place.directory(), error);
   if (error == std::errc::no_such_file_or_directory)
      throw Failure(exitNo, place.directory() + ": the system has no tables");
   std::vector<std::string> paths;
   for (; !error && at != std::filesystem::recursive_directory_iterator(); at.increment(error))
      if (at->is_regular_file(error) && !at->path().string().ends_with('~'))
         paths.push_back(std::filesystem::relative(at->path(), place.directory(), error));
   if (error)
      throw Failure(exitSystem, place.directory() + ": can't be read: " + error.message());
   std::sort(paths.begin(), paths.end(), NaturalOrder());
   Json all = Json::array();
   for (auto const& path : paths) {
      Plaze::Reader reader(place.directory() + "/" + path);
      if (reader.refresh() == Plaze::Reader::State::good)
         all.push_back(infoOf(reader, path));
      else if (place.wantsJson)
         all.push_back({{"path", path}, {"file", reader.path()}, {"error", reader.reason()}});
      if (!place.wantsJson)
         out << Kem::printable(path) << '\n';
   }
   if (place.wantsJson)
      out << dumped(all) << '\n';
   return exitDone;
}

int info(Place const& place, std::string const& path, std::ostream& out) {
   Json const info = infoOf(opened(place.file(path)), path);
   if (place.wantsJson) {
      out << dumped(info) << '\n';
      return exitDone;
   }
   for (auto const& [name, value] : info.items()) {
      std::string const text = value.is_string() ? Kem::printable(value.get<std::string>()) : value.dump();
      out << name << std::string(20 - name.size(), ' ') << text << '\n';
   }
   return exitDone;
}

int get(Place const& place, std::string const& path, std::ostream& out) {
   std::string const file = place.file(path);
   auto const reader = opened(file);
   Rows const rows = rowsOf(reader, typeOf(reader.file().shape(), file));
   char const* separator = "\n";
   out << '{';
   for (auto const& [key, json] : rows.values) {
      out << separator << "   " << quoted(key) << ": " << json;
      separator = ",\n";
   }
   out << (rows.values.empty() ? "}\n" : "\n}\n");
   if (rows.unreadable > 0)
      throw Failure(exitRefused, file + ": " + std::to_string(rows.unreadable) + " entries can't be read");
   return exitDone;
}

int get(Place const& place, std::string const& path, std::string const& key, std::ostream& out) {
   std::string const file = place.file(path);
   auto const reader = opened(file);
   auto const& type = typeOf(reader.file().shape(), file);
   Rows const rows = rowsOf(reader, type);
   auto const at = rows.values.find(keyText(type, keyBytes(type, key)));
   if (at != rows.values.end()) {
      out << at->second << '\n';
      return exitDone;
   }
   if (rows.unreadable > 0)
      throw Failure(exitRefused, file + ": " + key + " isn't among what can be read; " +
                                     std::to_string(rows.unreadable) + " entries can't be");
   throw Failure(exitNo, file + ": there is no entry " + key);
}

int put(Place const& place, std::string const& path, std::string const& key, std::string const& json) {
   std::string const file = place.file(path);
   Plaze::Writer writer(file);
   auto const& type = typeOf(writer.shape(), file);
   std::string const bytes = keyBytes(type, key);
   writer.put(bytes, valueBytes(type, json, path + "[" + key + "]"));
   return exitDone;
}

int del(Place const& place, std::string const& path, std::string const& key) {
   std::string const file = place.file(path);
   Plaze::Writer writer(file);
   if (!writer.del(keyBytes(typeOf(writer.shape(), file), key)))
      throw Failure(exitNo, file + ": there is no entry " + key);
   return exitDone;
}

int create(Place const& place, std::string const& path, std::string const& type, uint32_t capacity) {
   std::string const file = place.file(path);
   Plaze::Writer writer(file, typeNamed(type, file).shape(), capacity);
   return exitDone;
}

void watch(Place const& place, std::string const& path, std::ostream& out) {
   std::string const file = place.file(path);
   Plaze::Reader reader(file);
   Plaze::KeyShadow shadow;
   std::string reported; // the last reason why the table can't be read
   auto report = [&](std::string const& reason) {
      if (!reason.empty() && reason != reported)
         Process::say("plazectl", reason);
      reported = reason;
   };
   Plaze::TableType const* type =
       nullptr; // null while the rows can't be read; then nothing is printed of them
   auto look = [&] {
      auto const* const typeBefore = type; // of the rows that are gone when another table takes the path
      if (reader.refresh() == Plaze::Reader::State::good) {
         Plaze::Shape const shape = reader.file().shape();
         type = Plaze::tableType(shape.typeName);
         if (!type || type->shape() != shape)
            type = nullptr;
         report(type ? "" : file + ": holds " + shape.typeName + ", which this release doesn't know");
      } else {
         report(reader.reason());
      }
      auto const outcome = shadow.pass(reader, [&](std::string_view key, Plaze::KeyShadow::Change change) {
         bool const isGone = change == Plaze::KeyShadow::Change::removed;
         auto const* const keyType = isGone ? typeBefore : type;
         if (!keyType || !Plaze::isWellFormed(*keyType->key, key))
            return;
         std::string const text = quoted(keyText(*keyType, key));
         Plaze::Entry entry;
         uint64_t sequence;
         if (isGone)
            out << "{\"key\": " << text << ", \"deleted\": true}\n";
         else if (reader.read(shadow.slots().find(key)->second, entry, sequence) ==
                      Plaze::Reader::Result::entry &&
                  entry.key == key && isRow(*type, key, entry.value))
            out << "{\"key\": " << text << ", \"value\": " << valueJson(*type, entry.value) << "}\n";
      });
      if (std::string const why = Kem::whyOutputFailed(); !why.empty())
         throw Failure(exitSystem, "standard output: " + why);
      return outcome.changes > 0;
   };
   look();
   Plaze::TableWatch const tableWatch(file, look);
   Kem::activityManager()->run();
   std::exit(exitDone);
}

} // namespace Plazectl
