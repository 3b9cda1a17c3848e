#include "Show.h"

#include "Json.h"
#include "Table.h"
#include "Words.h"

#include <cstdio>

namespace Vornctl {

namespace {

// Whose figures these are. A starting agent holds its log back, and with it its figures: those in the tree
// are then the previous process's.
enum class Whose { running, starting, gone, nobody };

Whose whose(SwitchState const& state) {
   uint32_t const reported = state.agentStatus->pid();
   if (state.agentPid != 0)
      return state.agentPid == reported ? Whose::running : Whose::starting;
   return reported == 0 ? Whose::nobody : Whose::gone;
}

std::string whoseText(SwitchState const& state) {
   std::string const before = "process " + std::to_string(state.agentStatus->pid());
   switch (whose(state)) {
   case Whose::running:
      return "Agent: running, " + before + ".\n";
   case Whose::starting:
      return "Agent: process " + std::to_string(state.agentPid) +
             " is starting, and what it writes is held back until it has settled." +
             (state.agentStatus->pid() == 0 ? "" : "\nThe figures are those of " + before + ".") + '\n';
   case Whose::gone:
      return "Agent: not connected. The figures are the last ones of " + before + ".\n";
   case Whose::nobody:
      break;
   }
   return "Agent: not connected, and none has left any figures.\n";
}

char const* whoseName(Whose whose) {
   switch (whose) {
   case Whose::running:
      return "running";
   case Whose::starting:
      return "starting";
   default:
      return "absent";
   }
}

std::string secondsText(double seconds) {
   char text[32];
   std::snprintf(text, sizeof text, "%.3f s", seconds);
   return text;
}

std::string bytesText(int32_t bytes) {
   return bytes < 0 ? "unknown" : std::to_string(bytes) + " bytes";
}

std::string logText(Agent::AttributeLog const& log) {
   std::string text = "Attribute log: " + counted(log.operationsWritten, "operation") + ", " +
                      counted(log.bytesWritten, "byte") + " written\n";
   text += "   socket buffer            " + bytesText(log.kernBufferSize) + '\n';
   text += "   stages pause above       " + bytesText(log.kernBufferThreshold) + '\n';
   text += "   in use when measured     " +
           (log.kernBufferUsage < 0 ? "not measured yet" : bytesText(log.kernBufferUsage)) + '\n';
   text += "   measured above           " + counted(log.aboveThresholdCount, "time") + '\n';
   return text;
}

Json backlogJson(SwitchState const& state) {
   Json stages = Json::object();
   for (auto const& [name, stage] : state.agentStatus->deferredStage())
      stages[name.str()] = {{"backlog", stage.backlog},
                            {"updatesSeen", stage.updatesSeen},
                            {"updatesProcessed", stage.updatesProcessed},
                            {"dispatchCount", stage.dispatchCount},
                            {"yieldBeforeFinishingCount", stage.yieldBeforeFinishingCount},
                            {"timeUsed", stage.timeUsed}};
   auto const& log = state.agentStatus->attributeLog();
   return {{"agent", whoseName(whose(state))},
           {"agentPid", state.agentPid == 0 ? Json() : Json(state.agentPid)},
           {"figuresOfPid", state.agentStatus->pid()},
           {"deferredStages", std::move(stages)},
           {"attributeLog",
            {{"isHeld", whose(state) == Whose::starting},
             {"kernBufferSize", log.kernBufferSize},
             {"kernBufferThreshold", log.kernBufferThreshold},
             {"kernBufferUsage", log.kernBufferUsage},
             {"aboveThresholdCount", log.aboveThresholdCount},
             {"operationsWritten", log.operationsWritten},
             {"bytesWritten", log.bytesWritten}}}};
}

} // namespace

std::string showBacklog(SwitchState const& state, Format const& format) {
   if (format.wantsJson)
      return jsonText(backlogJson(state));
   std::string text = whoseText(state);
   if (whose(state) == Whose::nobody)
      return text;
   auto const right = Table::Align::right;
   Table table({{"Stage"},
                {"Waiting", right},
                {"Seen", right},
                {"Done", right},
                {"Slices", right},
                {"Unfinished", right},
                {"Time"}});
   for (auto const& [name, stage] : state.agentStatus->deferredStage())
      table.add({name.str(), std::to_string(stage.backlog), std::to_string(stage.updatesSeen),
                 std::to_string(stage.updatesProcessed), std::to_string(stage.dispatchCount),
                 std::to_string(stage.yieldBeforeFinishingCount)},
                {secondsText(stage.timeUsed)});
   if (table.empty())
      text += "There are no deferred stages: the supervisor is on standby.\n";
   else
      text += '\n' + table.text(format.width);
   return text + '\n' + logText(state.agentStatus->attributeLog());
}

} // namespace Vornctl
