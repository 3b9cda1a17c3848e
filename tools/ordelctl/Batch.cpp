#include "Batch.h"
#include "Asking.h"
#include "Changing.h"
#include "Failures.h"
#include "Reading.h"
#include "Timeouts.h"
#include "Watching.h"
#include "treejson/Error.h"
#include "treejson/JsonReader.h"
#include "treejson/JsonText.h"

#include <charconv>
#include <optional>

namespace Ordelctl {

namespace {

using TreeJson::JsonKind;
using TreeJson::JsonReader;

// The elements of the array, each as JSON, taken one after the other.
class Arguments {
  public:
   explicit Arguments(std::string_view line) {
      JsonReader in(line);
      if (in.kind() != JsonKind::array)
         throw UsageError("a command is an array, such as [\"get\", \"bridging/config\"]");
      for (in.beginArray(); in.nextElement();)
         elements_.push_back(in.skip());
      in.end();
   }

   bool isEmpty() const { return next_ == elements_.size(); }
   std::string json(char const* what) {
      if (isEmpty())
         throw UsageError(std::string("expected ") + what);
      return std::string(elements_[next_++]);
   }
   std::string string(char const* what) {
      JsonReader in(isEmpty() ? std::string_view("null") : elements_[next_]);
      if (in.kind() != JsonKind::string)
         throw UsageError(std::string("expected ") + what + ", a string");
      ++next_;
      return in.string();
   }
   // Takes the option when it comes next.
   bool option(std::string_view name) {
      JsonReader in(isEmpty() ? std::string_view("null") : elements_[next_]);
      if (in.kind() != JsonKind::string || in.string() != name)
         return false;
      ++next_;
      return true;
   }
   Kem::Seconds seconds() {
      std::string const text = json("seconds");
      double number = 0;
      auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
      if (error != std::errc() || end != text.data() + text.size() || !isTimeout(number))
         throw UsageError(text + " is no timeout; expected " + timeoutText);
      return number;
   }
   void end() const {
      if (!isEmpty())
         throw UsageError("more arguments than the command takes");
   }

  private:
   std::vector<std::string_view> elements_;
   size_t next_ = 0;
};

std::string listJson(std::vector<std::string> const& names) {
   std::string text = "[";
   for (std::string const& name : names) {
      text += text.size() > 1 ? ", " : "";
      TreeJson::appendQuoted(text, name);
   }
   return text + "]";
}

} // namespace

// The value of the answer.
std::string Batch::run(std::string_view line) {
   Arguments arguments(line);
   std::string const command = arguments.string("a command");
   std::string value;
   auto const gather = [&](std::string_view piece) { value += piece; };
   if (command == "get") {
      std::string const selector = arguments.string("a selector");
      arguments.end();
      get(session_, selector, TreeJson::Layout::oneLine, gather);
   } else if (command == "ls") {
      std::string const selector = arguments.string("a selector");
      arguments.end();
      value = listJson(list(session_, selector));
   } else if (command == "dump") {
      std::string const selector = arguments.isEmpty() ? "/" : arguments.string("a selector");
      arguments.end();
      dump(session_, selector, TreeJson::Layout::oneLine, gather);
   } else if (command == "set") {
      std::string const selector = arguments.string("a selector");
      Given const given{arguments.json("a value"), false};
      arguments.end();
      set(nodes_, selector, given);
   } else if (command == "create") {
      std::string const path = arguments.string("a path");
      std::string const type = arguments.string("a type");
      arguments.end();
      create(nodes_, path, type);
   } else if (command == "delete") {
      std::string const selector = arguments.string("a selector");
      arguments.end();
      erase(nodes_, selector);
   } else if (command == "load") {
      std::string const document = arguments.json("a document");
      arguments.end();
      load(nodes_, document);
   } else if (command == "wait") {
      std::string const selector = arguments.string("a selector");
      Condition condition;
      Kem::Seconds timeout = defaultTimeout;
      while (!arguments.isEmpty()) {
         if (arguments.option("--absent"))
            condition.isAbsent = true;
         else if (arguments.option("--timeout"))
            timeout = arguments.seconds();
         else if (condition.value)
            arguments.end();
         else
            condition.value = Given{arguments.json("a value"), false};
      }
      if (condition.isAbsent && condition.value)
         throw UsageError("either a value or --absent");
      waitFor(session_, selector, condition, timeout);
   } else if (command == "settle") {
      std::optional<std::string> agent;
      Kem::Seconds timeout = defaultTimeout;
      while (!arguments.isEmpty()) {
         if (arguments.option("--timeout"))
            timeout = arguments.seconds();
         else if (!agent && arguments.option("--any"))
            agent = "";
         else if (!agent && arguments.option("--agent")) {
            agent = arguments.string("an agent's name");
            if (!isAgentName(*agent))
               throw UsageError(agentNameText);
         } else
            throw UsageError("expected --timeout SECONDS, and either --agent NAME or --any");
      }
      settle(session_, agent.value_or(defaultAgent), timeout);
   } else if (command == "clients") {
      arguments.end();
      value = clients(session_);
   } else if (command == "snapshot") {
      arguments.end();
      snapshot(session_);
   } else {
      throw UsageError("there is no command \"" + command + "\" in a batch");
   }
   return value.empty() ? "null" : value;
}

std::string Batch::answer(std::string_view line) {
   std::string text;
   try {
      text = "{\"ok\": true, \"value\": " + run(line);
   } catch (Unreachable const&) {
      throw;
   } catch (std::runtime_error const& error) {
      text = "{\"ok\": false, \"error\": ";
      TreeJson::appendQuoted(text, error.what());
   }
   return text + "}";
}

} // namespace Ordelctl
