#include "CommandLine.h"

#include "Failures.h"
#include "Session.h"
#include "Show.h"
#include "Why.h"
#include "WhyHost.h"
#include "WhyInterface.h"
#include "Words.h"

#include "Kem/StandardStreams.h"
#include "Ordel/client/Connection.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Vornctl {

namespace {

constexpr char const* overview =
    "Ports may be given by their short names (Et1, Po5). Exit status: 0 done; 1 the answer is no (no such "
    "VLAN\n"
    "or port, no member, not up); 2 wrong usage; 3 the database refused; 4 the database can't be reached.\n"
    "\n"
    "vornctl COMMAND --help says more and has examples.";

constexpr size_t usualWidth = 80;

// The width of the terminal, or the usual one when the output isn't a terminal.
size_t lineWidth() {
   winsize size{};
   bool const isTerminal = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
   return isTerminal ? std::max<size_t>(size.ws_col, usualWidth) : usualWidth;
}

void finishOutput() {
   if (std::string const why = Kem::whyOutputFailed(); !why.empty())
      throw UsageError("standard output: " + why);
}

struct Options {
   std::string socketPath = Ordel::Connection::defaultSocketPath();
   std::string vlan, port, intf;
   bool isIntfNumberVlan = false; // "10" as the name of an interface is Vlan10
   Format format;
   std::function<int()> action; // what the command does; returns the exit status
};

CLI::App* addCommand(CLI::App& parent, Options& options, char const* name, char const* help,
                     char const* examples, std::function<int()> action) {
   CLI::App* const command = parent.add_subcommand(name, help);
   command->footer(examples);
   command->fallthrough();
   command->callback([&options, action = std::move(action)] { options.action = action; });
   return command;
}

// A show command: fetches its parts and prints.
std::function<int()> shows(Options& options, Part parts,
                           std::function<std::string(SwitchState const&)> show) {
   return [&options, parts, show = std::move(show)] {
      Session session(options.socketPath);
      std::string const text = show(session.fetch(parts));
      std::fwrite(text.data(), 1, text.size(), stdout);
      return 0;
   };
}

std::optional<Bridging::VlanId> vlanOf(Options const& options) {
   return options.vlan.empty() ? std::nullopt : std::optional(vlanFromText(options.vlan));
}

std::optional<Sulvi::IntfId> portOf(Options const& options) {
   return options.port.empty() ? std::nullopt : std::optional(portFromText(options.port));
}

std::optional<Sulvi::IntfId> intfOf(Options const& options) {
   return options.intf.empty() ? std::nullopt
                               : std::optional(intfFromText(options.intf, options.isIntfNumberVlan));
}

void addShowRouted(CLI::App& show, Options& options) {
   auto const& format = options.format;
   addCommand(show, options, "interface",
              "Interfaces: kernel device, address, MTU, state, and why they are in it",
              "What the kernel has is read in the namespaces that the records name, where the user may.\n"
              "  vornctl show interface\n"
              "  vornctl show interface Vlan10             one, with all that is known of it",
              shows(options, showIntfParts,
                    [&](SwitchState const& state) { return showInterface(state, intfOf(options), format); }))
       ->add_option("NAME", options.intf, "Name of an interface");
   auto* const vlanIntf = addCommand(
       show, options, "vlan-interface", "VLAN interfaces: who configures them, ports, state and why",
       "  vornctl show vlan-interface\n"
       "  vornctl show vlan-interface 10            one, by its VLAN or its name",
       shows(options, showIntfParts,
             [&](SwitchState const& state) { return showVlanInterface(state, intfOf(options), format); }));
   vlanIntf->add_option("VLAN", options.intf, "Number of a VLAN, or name of an interface");
   vlanIntf->parse_complete_callback([&options] { options.isIntfNumberVlan = true; });
   addCommand(
       show, options, "subinterface", "Subinterfaces: parent, VLAN, hardware, state and why",
       "  vornctl show subinterface\n"
       "  vornctl show subinterface Et1.10          one",
       shows(options, showIntfParts,
             [&](SwitchState const& state) { return showSubinterface(state, intfOf(options), format); }))
       ->add_option("NAME", options.intf, "Name of a subinterface");
   addCommand(show, options, "namespace", "Network namespaces that interfaces are in or are configured into",
              "  vornctl show namespace", shows(options, showIntfParts, [&](SwitchState const& state) {
                 return showNamespace(state, format);
              }));
}

void addShow(CLI::App& app, Options& options) {
   CLI::App& show = *app.add_subcommand("show", "Show a part of what the agent resolved");
   show.require_subcommand(1);
   show.fallthrough();
   auto const& format = options.format;
   addCommand(show, options, "vlan", "VLANs, their status and their ports",
              "  vornctl show vlan\n"
              "  vornctl show vlan 10                      one, with how each port takes part",
              shows(options, showVlanParts,
                    [&](SwitchState const& state) { return showVlan(state, vlanOf(options), format); }))
       ->add_option("ID", options.vlan, "Number of a VLAN");
   addCommand(show, options, "switchport", "Ports: mode, native VLAN, the VLANs that they are members of",
              "  vornctl show switchport\n"
              "  vornctl show switchport Et1               one, with all its settings",
              shows(options, showSwitchportParts,
                    [&](SwitchState const& state) { return showSwitchport(state, portOf(options), format); }))
       ->add_option("INTF", options.port, "Name of a port");
   addCommand(
       show, options, "private-vlan", "Private VLANs: who belongs to whom, and what is wrong with the rest",
       "  vornctl show private-vlan\n"
       "  vornctl show private-vlan 100             one, as primary or as secondary",
       shows(options, showPrivateVlanParts,
             [&](SwitchState const& state) { return showPrivateVlan(state, vlanOf(options), format); }))
       ->add_option("VLAN", options.vlan, "Number of a private VLAN");
   addCommand(
       show, options, "translation", "Translations of VLAN tags, configured or added for private VLANs",
       "  vornctl show translation\n"
       "  vornctl show translation Et1              one port",
       shows(options, showTranslationParts,
             [&](SwitchState const& state) { return showTranslation(state, portOf(options), format); }))
       ->add_option("INTF", options.port, "Name of a port");
   addCommand(show, options, "inputs", "Publishers, and which of them won what by which number",
              "  vornctl show inputs", shows(options, showInputsParts, [&](SwitchState const& state) {
                 return showInputs(state, format);
              }));
   CLI::App& mac = *show.add_subcommand("mac", "Addresses that publishers set");
   mac.require_subcommand(1);
   mac.fallthrough();
   addCommand(mac, options, "static", "Static hosts and groups, and the input that each is from",
              "An input is missing where none has the entry as it is resolved.\n"
              "  vornctl show mac static\n"
              "  vornctl show mac static 10                of one VLAN",
              shows(options, showMacStaticParts,
                    [&](SwitchState const& state) { return showMacStatic(state, vlanOf(options), format); }))
       ->add_option("VLAN", options.vlan, "Number of a VLAN");
   addCommand(
       show, options, "dynamic-vlan", "VLANs that dynamic sources claim, and whose settings each has",
       "A VLAN that the chosen input holds too is static, and its claims wait.\n"
       "  vornctl show dynamic-vlan\n"
       "  vornctl show dynamic-vlan 30              one, with each claim on it",
       shows(options, showDynamicVlanParts,
             [&](SwitchState const& state) { return showDynamicVlan(state, vlanOf(options), format); }))
       ->add_option("ID", options.vlan, "Number of a VLAN");
   addCommand(show, options, "internal-vlan", "Internal VLANs of routed ports, and routed ports without one",
              "  vornctl show internal-vlan",
              shows(options, showInternalVlanParts,
                    [&](SwitchState const& state) { return showInternalVlan(state, format); }));
   addShowRouted(show, options);
   addCommand(show, options, "errdisable", "Disabled ports, their causes, and when they come back",
              "  vornctl show errdisable", shows(options, showErrdisableParts, [&](SwitchState const& state) {
                 return showErrdisable(state, format);
              }));
   addCommand(show, options, "backlog", "How far the agent is: its deferred stages and its attribute log",
              "The agent renews these figures once a second while they change.\n"
              "  vornctl show backlog --json",
              shows(options, showBacklogParts,
                    [&](SwitchState const& state) { return showBacklog(state, format); }));
}

// The exit status.
int printWhy(Options const& options) {
   auto const print = [](std::string const& text, bool isYes) {
      std::fwrite(text.data(), 1, text.size(), stdout);
      return isYes ? 0 : 1;
   };
   auto const addr = addressFromText(options.port);
   auto const vlanId = vlanOf(options);
   if (addr && !vlanId)
      throw UsageError("why " + options.port + ": the number of a VLAN is wanted behind an address");
   Sulvi::IntfId const intfId = addr ? Sulvi::IntfId() : intfFromText(options.port);
   Session session(options.socketPath);
   if (!vlanId) {
      IntfAnswer const answer = whyIntf(session.fetch(whyIntfParts), intfId, options.format);
      return print(answer.text, answer.isUp);
   }
   WhyAnswer const answer = addr ? whyHost(session.fetch(whyHostParts), *addr, *vlanId, options.format)
                                 : why(session.fetch(whyParts), intfId, *vlanId, options.format);
   return print(answer.text, answer.isMember);
}

void addWhy(CLI::App& app, Options& options) {
   CLI::App* const command = addCommand(
       app, options, "why",
       "Explain why an interface is up or down, why a port is or isn't a member of a VLAN, or an address in "
       "it",
       "Of an interface alone it tells which condition decides its state, and what keeps its kernel device "
       "away.\n"
       "Of a port and a VLAN it tells which publisher decides the port and who lost, what the port is, what "
       "is "
       "known\n"
       "of the VLAN, and then the rules of membership. Of an Ethernet address, which input decides it and "
       "which\n"
       "lost by which number, and whether the VLAN has static hosts of its own. The rule that decides is "
       "marked "
       "with >.\n"
       "Exit status 0 when the interface is up, the port is a member or the address is there, 1 when not.\n"
       "  vornctl why Vlan10\n"
       "  vornctl why Et8 10\n"
       "  vornctl why 00:1c:73:00:00:01 10",
       [&options] { return printWhy(options); });
   command->add_option("INTF", options.port, "Name of an interface, or an Ethernet address")->required();
   command->add_option("VLAN", options.vlan, "Number of the VLAN");
}

} // namespace

int runCommandLine(int argc, char** argv) {
   CLI::App app("Shows what the bridging agent resolved, and why.", "vornctl");
   Options options;
   options.format.width = lineWidth();
   app.add_option("--socket", options.socketPath,
                  "Socket of the database (default: $ORDEL_SOCKET, else /run/vorn/ordel.sock)")
       ->option_text("PATH");
   app.add_flag("--json", options.format.wantsJson, "Print JSON");
   app.set_version_flag("--version", "vornctl " VORN_VERSION);
   app.require_subcommand(1);
   app.footer(overview);
   addShow(app, options);
   addWhy(app, options);
   try {
      app.parse(argc, argv);
      // Before anything is connected: a wrong argument is wrong without a database, too.
      vlanOf(options);
      portOf(options);
      intfOf(options);
   } catch (CLI::Success const& helpOrVersion) {
      app.exit(helpOrVersion);
      finishOutput();
      return 0;
   } catch (CLI::ParseError const& error) {
      auto const commands = app.get_subcommands();
      bool const isShow = !commands.empty() && commands[0]->get_name() == "show";
      auto const unknown = app.remaining(true);
      if ((commands.empty() || (isShow && commands[0]->get_subcommands().empty())) && !unknown.empty())
         throw UsageError(std::string("there is no command ") + (isShow ? "show " : "") + unknown.front() +
                          "; see vornctl --help");
      throw UsageError(std::string(error.what()) + "; see vornctl --help");
   }
   int const status = options.action();
   finishOutput();
   return status;
}

} // namespace Vornctl
