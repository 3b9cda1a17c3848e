#include "CommandLine.h"
#include "Asking.h"
#include "Batch.h"
#include "Changing.h"
#include "Failures.h"
#include "Kem/StandardStreams.h"
#include "Reading.h"
#include "Timeouts.h"
#include "Watching.h"
#include "treejson/Error.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <optional>

namespace Ordelctl {

namespace {

using TreeJson::Layout;

constexpr char const* overview =
    "Places are named by selectors: tree/path for a directory or an entity in one, .attribute behind it for "
    "an\n"
    "attribute, [key] for a member of a collection; / is the root. Quote them in a shell.\n"
    "  bridging/input/config/cli.vlanConfig[10].configuredName\n"
    "\n"
    "Exit status: 0 done; 1 the answer is no (not there, timed out, not settled); 2 wrong usage; 3 the "
    "database\n"
    "refused; 4 the database can't be reached.\n"
    "\n"
    "ordelctl COMMAND --help says more and has examples.";

void print(std::string_view text) {
   std::fwrite(text.data(), 1, text.size(), stdout);
}

void printLine(std::string_view text) {
   print(text);
   print("\n");
   std::fflush(stdout);
}

void finishOutput() {
   if (std::string const why = Kem::whyOutputFailed(); !why.empty())
      throw UsageError("standard output: " + why);
}

std::string readFile(std::string const& name) {
   std::FILE* const file = name == "-" ? stdin : std::fopen(name.c_str(), "r");
   if (!file)
      throw UsageError(name + ": " + std::strerror(errno));
   std::string text;
   char piece[1 << 16];
   for (size_t count; (count = std::fread(piece, 1, sizeof piece, file)) > 0;)
      text.append(piece, count);
   int const readError = std::ferror(file) ? errno : 0;
   if (file != stdin)
      std::fclose(file);
   if (readError)
      throw UsageError(name + ": " + std::strerror(readError));
   return text;
}

// Errors in a document name its file too.
void loadFile(Session& session, std::string const& name) {
   std::string const text = readFile(name);
   std::string const place = (name == "-" ? "standard input" : name) + ": ";
   Nodes nodes(session);
   try {
      load(nodes, text);
   } catch (TreeJson::SyntaxError const& error) {
      throw TreeJson::SyntaxError(place + error.what());
   } catch (TreeJson::Refusal const& error) {
      throw TreeJson::Refusal(place + error.what());
   }
}

void runBatch(Session& session) {
   std::ios::sync_with_stdio(false);
   Batch batch(session);
   for (std::string line; std::getline(std::cin, line);)
      if (line.find_first_not_of(" \t\r") != std::string::npos)
         printLine(batch.answer(line));
}

// What is read from the command line, for whichever command.
struct Options {
   std::string socketPath = Ordel::Connection::defaultSocketPath();
   std::string selector = "/";
   std::vector<std::string> selectors;
   std::string type;
   std::string file;
   std::optional<std::string> value;
   std::string agent = defaultAgent;
   bool wantsAnyAgent = false;
   bool isAbsent = false;
   bool hasInitial = false;
   bool wantsJson = false;
   bool wantsMounts = false;
   double timeout = defaultTimeout;
   std::function<void(Session&)> action; // what the command does
};

// The text without the space that protects it (see protectNumbers).
std::string word(std::string const& text) {
   return text.starts_with(" -") ? text.substr(1) : text;
}

CLI::App* addCommand(CLI::App& app, Options& options, char const* name, char const* help,
                     char const* examples, std::function<void(Session&)> action) {
   CLI::App* const command = app.add_subcommand(name, help);
   command->footer(examples);
   command->fallthrough();
   command->callback([&options, action = std::move(action)] { options.action = action; });
   return command;
}

void addTimeout(CLI::App& command, Options& options) {
   command.add_option("--timeout", options.timeout, "Give up after so many seconds (default: 10)")
       ->option_text("SECONDS")
       ->check([](std::string const& text) {
          double seconds = 0;
          return CLI::detail::lexical_cast(text, seconds) && isTimeout(seconds)
                     ? std::string()
                     : text + ": expected " + timeoutText;
       });
}

void addReading(CLI::App& app, Options& options) {
   auto* const getCommand =
       addCommand(app, options, "get", "Print what the selector names as JSON",
                  "  ordelctl get bridging/config.hostAgingTime\n"
                  "  ordelctl get 'bridging/config.vlanConfig[10]'\n"
                  "  ordelctl get bridging/input/config        the directory with all that is in it",
                  [&](Session& session) {
                     get(session, options.selector, Layout::indented, print);
                     print("\n");
                  });
   getCommand->add_option("SELECTOR", options.selector, "What to print")->required();

   auto* const lsCommand =
       addCommand(app, options, "ls", "List the names of children, keys or attributes, a line each",
                  "  ordelctl ls /                              directories and entities\n"
                  "  ordelctl ls bridging/config.vlanConfig     keys of a collection\n"
                  "  ordelctl ls bridging/config                attributes of an entity",
                  [&](Session& session) {
                     for (std::string const& name : list(session, options.selector))
                        print(name + "\n");
                  });
   lsCommand->add_option("SELECTOR", options.selector, "Where to look")->required();

   auto* const dumpCommand = addCommand(app, options, "dump", "Print a document that load takes",
                                        "  ordelctl dump > tree.json                  the whole tree\n"
                                        "  ordelctl dump bridging/input/config/cli    one publisher",
                                        [&](Session& session) {
                                           dump(session, options.selector, Layout::indented, print);
                                           print("\n");
                                        });
   dumpCommand->add_option("SELECTOR", options.selector, "What to print; all of it by default");
}

void addChanging(CLI::App& app, Options& options) {
   auto* const setCommand = addCommand(
       app, options, "set", "Set one attribute or member",
       "A bare word is read as a string. Setting a member creates it; setting a whole collection deletes\n"
       "the members that aren't given.\n"
       "  ordelctl set bridging/config.hostAgingTime 600\n"
       "  ordelctl set 'bridging/input/config/cli.vlanConfig[10].configuredName' servers\n"
       "  ordelctl set 'bridging/input/config/cli.vlanConfig[20]' '{\"configuredName\": \"web servers\"}'\n"
       "  ordelctl set 'bridging/input/config/cli.vlanConfig[10].trunkGroup' '{\"red\": true}'",
       [&](Session& session) {
          Nodes nodes(session);
          set(nodes, options.selector, {word(*options.value), true});
       });
   setCommand->add_option("SELECTOR", options.selector, "What to set")->required();
   setCommand->add_option("JSON", options.value, "The value")->required();

   auto* const createCommand =
       addCommand(app, options, "create", "Create an entity in a directory, with the directories on the way",
                  "One that exists already, with that type, is left as it is.\n"
                  "  ordelctl create bridging/input/config/lag Bridging::Input::Config",
                  [&](Session& session) {
                     Nodes nodes(session);
                     create(nodes, options.selector, options.type);
                  });
   createCommand->add_option("PATH", options.selector, "Where to create it")->required();
   createCommand->add_option("TYPE", options.type, "Its type")->required();

   auto* const deleteCommand =
       addCommand(app, options, "delete", "Delete an entity of a directory, or a member of a collection",
                  "  ordelctl delete bridging/input/config/lag\n"
                  "  ordelctl delete 'bridging/input/config/cli.vlanConfig[10]'",
                  [&](Session& session) {
                     Nodes nodes(session);
                     erase(nodes, options.selector);
                  });
   deleteCommand->add_option("SELECTOR", options.selector, "What to delete")->required();

   auto* const loadCommand =
       addCommand(app, options, "load", "Bring a document in: all of it, or nothing",
                  "A document is an object {\"tree/path\": {\"$type\": ..., attribute: ...}, ...}. What is "
                  "missing is created,\n"
                  "what is given is set, the rest stays.\n"
                  "  ordelctl load examples/small-switch.json\n"
                  "  ordelctl dump bridging/input/config/cli | ordelctl --socket /tmp/other.sock load -",
                  [&](Session& session) { loadFile(session, options.file); });
   loadCommand->add_option("FILE", options.file, "The document; - for standard input")->required();
}

void addWaiting(CLI::App& app, Options& options) {
   auto* const watchCommand = addCommand(
       app, options, "watch", "Print a line of JSON for each change, until it is stopped",
       "A line is {\"selector\": ..., \"value\": ...} or {\"selector\": ..., \"deleted\": true}. What isn't "
       "there yet\n"
       "is awaited. What exists at the beginning is not printed, unless --initial asks for it.\n"
       "  ordelctl watch bridging/config\n"
       "  ordelctl watch --initial 'bridging/config.vlanConfig[10]' bridging/config.hostAgingTime",
       [&](Session& session) { watch(session, options.selectors, options.hasInitial, printLine); });
   watchCommand->add_option("SELECTOR", options.selectors, "What to follow")->required();
   watchCommand->add_flag("--initial", options.hasInitial, "First print what exists now");

   auto* const waitCommand =
       addCommand(app, options, "wait", "Wait until something is there, has a value, or is gone",
                  "Compares the whole value. Exit status 1 when it doesn't come about in time.\n"
                  "  ordelctl wait 'bridging/config.vlanConfig[10]'\n"
                  "  ordelctl wait 'bridging/config.vlanConfig[10].adminState' active --timeout 2\n"
                  "  ordelctl wait 'bridging/config.vlanConfig[10]' --absent",
                  [&](Session& session) {
                     Condition condition;
                     condition.isAbsent = options.isAbsent;
                     if (options.value)
                        condition.value = Given{word(*options.value), true};
                     waitFor(session, options.selector, condition, options.timeout);
                  });
   waitCommand->add_option("SELECTOR", options.selector, "What to wait for")->required();
   auto* const value = waitCommand->add_option("JSON", options.value, "The value that it shall have");
   waitCommand->add_flag("--absent", options.isAbsent, "Wait until it is not there")->excludes(value);
   addTimeout(*waitCommand, options);

   auto* const settleCommand = addCommand(
       app, options, "settle", "Wait until an agent has worked off all that was published",
       "Returns when the agent has taken in all that was published before, and has written all that "
       "follows\n"
       "from it. One that isn't connected is waited for. Exit status 1 when it takes longer than the "
       "timeout.\n"
       "  ordelctl settle --timeout 30\n"
       "  ordelctl settle --agent Vorn@2             the agent of the other supervisor\n"
       "  ordelctl settle --any                      all agents that are connected, if any",
       [&](Session& session) {
          settle(session, options.wantsAnyAgent ? "" : options.agent, options.timeout);
       });
   auto* const agent =
       settleCommand->add_option("--agent", options.agent, "The agent to wait for (default: Vorn)")
           ->option_text("NAME")
           ->check([](std::string const& name) {
              return isAgentName(name) ? std::string() : std::string(agentNameText);
           });
   settleCommand->add_flag("--any", options.wantsAnyAgent, "Wait for all agents that are connected")
       ->excludes(agent);
   addTimeout(*settleCommand, options);
}

void addAsking(CLI::App& app, Options& options) {
   addCommand(
       app, options, "batch", "Read commands as JSON arrays, one a line, and answer each with a line of JSON",
       "Arguments and options are those of a command line, values as JSON; watch is not among the commands.\n"
       "  [\"set\", \"bridging/config.hostAgingTime\", 600]           {\"ok\": true, \"value\": null}\n"
       "  [\"get\", \"bridging/config.hostAgingTime\"]                {\"ok\": true, \"value\": 600}\n"
       "  [\"wait\", \"bridging/nowhere\", \"--timeout\", 0.5]          {\"ok\": false, \"error\": \"...\"}",
       runBatch);
   auto* const clientsCommand =
       addCommand(app, options, "clients", "Tell who is connected",
                  "  ordelctl clients\n"
                  "  ordelctl clients --mounts                  and what each has mounted\n"
                  "  ordelctl clients --json",
                  [&](Session& session) {
                     std::string const json = clients(session);
                     print(options.wantsJson ? json + "\n" : clientTable(json));
                     if (options.wantsMounts && !options.wantsJson)
                        print(mountList(json));
                  });
   clientsCommand->add_flag("--mounts", options.wantsMounts, "List the mounts of each client too");
   clientsCommand->add_flag("--json", options.wantsJson, "As JSON, with the mounts of each client");
   addCommand(app, options, "snapshot", "Have the database write its snapshot file now",
              "  ordelctl snapshot", [](Session& session) { snapshot(session); });
}

// What begins with '-' counts as an option, so a negative number gets a space before it, which JSON
// passes over.
std::vector<std::string> protectNumbers(int argc, char** argv) {
   std::vector<std::string> arguments(argv + 1, argv + argc);
   for (std::string& argument : arguments)
      if (argument.size() > 1 && argument[0] == '-' && argument[1] >= '0' && argument[1] <= '9')
         argument.insert(0, " ");
   std::reverse(arguments.begin(), arguments.end()); // CLI11 takes them from the end
   return arguments;
}

} // namespace

int runCommandLine(int argc, char** argv) {
   CLI::App app("Reads, writes, watches and loads the tree of the state database.", "ordelctl");
   Options options;
   app.add_option("--socket", options.socketPath,
                  "Socket of the database (default: $ORDEL_SOCKET, else /run/vorn/ordel.sock)")
       ->option_text("PATH");
   app.set_version_flag("--version", "ordelctl " VORN_VERSION);
   app.require_subcommand(1);
   app.footer(overview);
   addReading(app, options);
   addChanging(app, options);
   addWaiting(app, options);
   addAsking(app, options);
   try {
      app.parse(protectNumbers(argc, argv));
   } catch (CLI::Success const& helpOrVersion) {
      app.exit(helpOrVersion);
      finishOutput();
      return 0;
   } catch (CLI::ParseError const& error) {
      if (app.get_subcommands().empty() && !app.remaining().empty())
         throw UsageError("there is no command " + app.remaining().front() + "; see ordelctl --help");
      throw UsageError(std::string(error.what()) + "; see ordelctl --help");
   }

   Session session(options.socketPath);
   options.action(session);
   finishOutput();
   return 0;
}

} // namespace Ordelctl
