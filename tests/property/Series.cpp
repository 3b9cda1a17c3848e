#include "Series.h"

#include "Kem/Trace.h"
#include "World.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace Model {

namespace {

using Kind = Publishers::Kind;

struct Step {
   int kind;
   bool endsTurn = true;
   Step(Operation::Kind what) : kind(what) {}
   Step(Kind what, bool ends = true) : kind(static_cast<int>(what)), endsTurn(ends) {}
};
using Chain = std::vector<Step>;

// What only many steps in a row lead to. All steps of a chain have one seed, and so one port.
Chain const& someChain(Dice& dice) {
   static Chain const chains[] = {
       // The number that the previous run left a port is another port's by the time the port comes up.
       {Kind::numbersFreed, Kind::plainPort, Operation::routedByDefault, Operation::stop, Kind::modelGone,
        Operation::start, Kind::numbersTaken, Kind::numbersFreed, Kind::othersGone, Kind::othersBack,
        Kind::modelBack},
       // The user's VLANs take all numbers and leave them, and the ports come back at different times.
       {Kind::numbersTaken, Kind::numbersFreed, Operation::wait, Kind::othersGone, Kind::modelGone,
        Kind::othersBack, Kind::modelBack},
       // An input is made again before the agent has seen that it went.
       {{Kind::inputReplaced, false}, {Kind::port, false}, Kind::priority},
       {Kind::inputReplaced},
       // What the neighbour edited is looked at.
       {Operation::edit, Kind::trunksLook},
       // A VLAN changes behind a change of rank: it is looked at as a whole before its attribute is mirrored.
       {{Kind::priority, false}, Kind::bestVlan},
       // Private VLANs: a secondary that moves, a primary that is replaced, one that comes behind its
       // secondaries, the same while no agent runs, and the one table of leaving frames with two writers.
       {Kind::privateVlans, Kind::secondaryMoved, {Kind::secondaryMoved, false}, Kind::secondaryReplaced},
       {Kind::privateVlans, {Kind::primaryDeleted, false}, Kind::primaryMade, Kind::secondaryReplaced},
       {Kind::primaryDeleted,
        Kind::privateVlans,
        {Kind::primaryDeleted, false},
        Kind::secondaryMoved,
        Kind::primaryMade},
       {Kind::privateVlans, Operation::stop, Kind::secondaryMoved, Kind::primaryDeleted, Operation::start,
        Kind::primaryMade},
       {Kind::privateVlans, Kind::primarySuspended, Kind::primarySuspended, Kind::secondaryLeaves,
        Kind::secondaryLeaves},
       {Kind::privateVlans, Kind::primaryDeleted, Kind::primaryMade, Kind::secondaryHeads,
        Kind::secondaryHeads},
       {Kind::privateVlans, Kind::trunkTranslated, Kind::trunkTranslated, Kind::secondaryMoved,
        Operation::restart},
   };
   return dice.oneOf(chains);
}

} // namespace

Series makeSeries(uint64_t seed, unsigned length) {
   Series series{.seed = seed, .operations = {}};
   Dice dice(seed * 7919);
   // How often each of the publishers' kinds occurs.
   static constexpr Kind kinds[] = {
       Kind::priority, Kind::priority,   Kind::publisher,   Kind::publisher,   Kind::vlan,
       Kind::vlan,     Kind::vlan,       Kind::vlan,        Kind::vlan,        Kind::port,
       Kind::port,     Kind::port,       Kind::port,        Kind::port,        Kind::port,
       Kind::port,     Kind::intf,       Kind::intf,        Kind::vlanIntf,    Kind::setting,
       Kind::host,     Kind::host,       Kind::host,        Kind::role,        Kind::role,
       Kind::role,     Kind::sviMapping, Kind::translation, Kind::privatePort, Kind::privatePort,
       Kind::source,   Kind::source,     Kind::source,      Kind::widener,     Kind::widener,
       Kind::routing,  Kind::routing,    Kind::routing,     Kind::vlanIntf};
   static constexpr int lives[] = {Operation::restart,       Operation::stop, Operation::start,
                                   Operation::start,         Operation::kill, Operation::killAtStart,
                                   Operation::changeDefault, Operation::fresh};
   auto const add = [&](int kind, uint64_t theirSeed, bool endsTurn) {
      if (series.operations.size() < length)
         series.operations.push_back(
             {.kind = kind, .seed = theirSeed, .endsTurn = endsTurn, .number = series.operations.size()});
   };
   // Every second series is mostly about routed interfaces, which have many sides.
   bool const isRouting = seed % 2 == 0;
   while (series.operations.size() < length) {
      if (dice.chance(80)) {
         uint64_t const common = dice.below(0x7fffffff);
         for (auto const& step : someChain(dice))
            add(step.kind, common, step.endsTurn);
         continue;
      }
      int const kind = dice.chance(12)                    ? dice.oneOf(lives)
                       : dice.chance(40)                  ? int(Operation::wait)
                       : dice.chance(12)                  ? int(Operation::edit)
                       : dice.chance(isRouting ? 12 : 40) ? int(Operation::faults)
                       : isRouting && !dice.chance(3)
                           ? static_cast<int>(dice.chance(5) ? Kind::vlanIntf : Kind::routing)
                           : static_cast<int>(dice.oneOf(kinds));
      add(kind, dice.below(0x7fffffff), !dice.chance(3));
   }
   return series;
}

std::string numbersOf(Series const& series) {
   std::string text;
   for (auto const& operation : series.operations)
      text += (text.empty() ? "" : ",") + std::to_string(operation.number);
   return text;
}

Series only(Series series, std::string const& numbers) {
   std::set<size_t> wanted;
   std::istringstream in(numbers);
   for (std::string item; std::getline(in, item, ',');)
      wanted.insert(std::stoul(item));
   std::erase_if(series.operations, [&](Operation const& o) { return !wanted.contains(o.number); });
   return series;
}

namespace {

std::string perform(World& world, Operation const& operation) {
   Dice dice(operation.seed);
   unsigned const turns = dice.below(12);
   switch (operation.kind) {
   case Operation::restart:
      world.stopAgent();
      world.startAgent();
      return "the agent is restarted";
   case Operation::stop:
      world.stopAgent();
      return "the agent stops";
   case Operation::start:
      world.startAgent();
      return "the agent starts";
   case Operation::kill:
      world.killAgent(turns);
      return "the agent is killed " + std::to_string(turns) + " turns later";
   case Operation::killAtStart:
      world.stopAgent();
      world.startAndKillAgent(turns);
      return "the agent starts and is killed " + std::to_string(turns) + " turns later";
   case Operation::routedByDefault:
      if (world.publishers().isRoutedByDefault())
         return "ports are routed by default already";
      [[fallthrough]];
   case Operation::changeDefault: {
      bool const wasUp = world.isAgentUp();
      world.stopAgent();
      std::string const text = world.publishers().changeDefault();
      world.run();
      if (wasUp)
         world.startAgent();
      return text;
   }
   case Operation::wait: {
      double const seconds = dice.chance() ? 11 : 4;
      world.endFaults();
      world.pass(seconds);
      return std::to_string(static_cast<int>(seconds)) + " seconds pass";
   }
   case Operation::fresh:
      world.startFreshAgent();
      return "a fresh agent starts";
   case Operation::faults:
      return world.makeKernelFail(dice);
   case Operation::edit:
      return world.edit(dice);
   default:
      return world.publishers().perform(static_cast<Publishers::Kind>(operation.kind), dice);
   }
}

} // namespace

Verdict run(Series const& series) {
   World world(series.seed);
   world.startAgent();
   Verdict verdict;
   verdict.differences = world.differences();
   std::ostringstream history;
   for (auto const& operation : series.operations) {
      if (!verdict.isGood())
         break;
      history << operation.number << ": " << perform(world, operation) << (operation.endsTurn ? "" : ", and")
              << "\n";
      bool const isLast = ++verdict.done == series.operations.size();
      if (!operation.endsTurn && !isLast)
         continue;
      world.run();
      if (isLast) {
         world.startAgent(); // what the last one left is compared too
         world.endFaults();
      }
      verdict.differences = world.differences();
   }
   verdict.history = history.str();
   return verdict;
}

namespace {
std::string tailOf(FILE* file) {
   constexpr long bytes = 500;
   std::fseek(file, 0, SEEK_END);
   std::fseek(file, std::max(std::ftell(file) - bytes, 0L), SEEK_SET);
   std::string text(bytes, '\0');
   text.resize(std::fread(text.data(), 1, text.size(), file));
   return text;
}
} // namespace

Verdict runApart(Series const& series) {
   int ends[2];
   if (pipe(ends) != 0)
      std::abort();
   // What it writes to standard error is of interest only when it ends by itself.
   FILE* const errors = std::tmpfile();
   if (!errors)
      std::abort();
   pid_t const child = fork();
   if (child < 0)
      std::abort();
   if (child == 0) {
      close(ends[0]);
      dup2(fileno(errors), STDERR_FILENO);
      Verdict const verdict = run(series);
      std::string const text = std::to_string(verdict.done) + "\n" + std::to_string(verdict.history.size()) +
                               "\n" + verdict.history + verdict.differences;
      for (size_t at = 0; at < text.size();) {
         ssize_t const written = write(ends[1], text.data() + at, text.size() - at);
         if (written <= 0)
            _exit(1);
         at += static_cast<size_t>(written);
      }
      _exit(0);
   }
   close(ends[1]);
   std::string text;
   char bytes[4096];
   for (ssize_t got = 0; (got = read(ends[0], bytes, sizeof bytes)) > 0;)
      text.append(bytes, static_cast<size_t>(got));
   close(ends[0]);
   int status = 0;
   waitpid(child, &status, 0);
   std::string const lastWords = tailOf(errors);
   std::fclose(errors);
   if (status != 0)
      return {.history = {},
              .differences =
                  (WIFSIGNALED(status) ? std::string("ended by signal: ") + strsignal(WTERMSIG(status))
                                       : "ended with status " + std::to_string(WEXITSTATUS(status))) +
                  "\n" + lastWords,
              .done = series.operations.size()};
   Verdict verdict;
   std::istringstream in(text);
   size_t historySize = 0;
   in >> verdict.done >> historySize;
   in.get();
   size_t const begin = static_cast<size_t>(in.tellg());
   verdict.history = text.substr(begin, historySize);
   verdict.differences = text.substr(begin + historySize);
   return verdict;
}

// Leaves out ever smaller stretches as long as the rest still fails.
Series shortened(Series series, size_t done, unsigned runs) {
   auto& operations = series.operations;
   operations.resize(std::min(done, operations.size()));
   for (size_t size = std::max<size_t>(operations.size() / 2, 1); runs > 0;) {
      bool hasShrunk = false;
      for (size_t at = 0; at < operations.size() && runs > 0;) {
         Series shorter = series;
         auto const from = shorter.operations.begin() + static_cast<std::ptrdiff_t>(at);
         shorter.operations.erase(from,
                                  from + static_cast<std::ptrdiff_t>(std::min(size, operations.size() - at)));
         --runs;
         if (!runApart(shorter).isGood()) {
            series = shorter;
            hasShrunk = true;
         } else {
            at += size;
         }
      }
      if (size == 1 && !hasShrunk)
         break;
      size = std::max<size_t>(size / 2, 1);
   }
   return series;
}

} // namespace Model
