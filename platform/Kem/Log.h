// Messages for the operator, to syslog: each is a static object that names itself.
//
//    static Kem::LogHandle const intfReloadTimeout("INTF_RELOAD_HITLESS_CONFIG_TIMEOUT", 4, {text1, text2},
//                                                  Kem::NoActionRequired, 0.0, 1.0);
//    if (intfReloadTimeout.okToLog(0)) intfReloadTimeout.log(0, nullptr, 0);
//
// A line reads "%AGENT-4-NAME: text". Texts are joined; each %s takes the next argument.
#pragma once

#include "Kem/Time.h"

#include <initializer_list>
#include <string>

namespace Kem {

inline constexpr char NoActionRequired[] = "No action is required.";

class LogHandle {
  public:
   // severity: 0 emergency to 7 debug, as in syslog(3). At most `burst` messages come within `interval`
   // seconds; an interval of 0 sets no limit.
   LogHandle(char const* name, int severity, std::initializer_list<char const*> texts,
             char const* recommendedAction, Seconds interval, double burst);

   char const* name() const { return name_; }
   int severity() const { return severity_; }
   std::string const& text() const { return text_; }
   char const* recommendedAction() const { return recommendedAction_; }

   // Whether the rate leaves room for a message now; asking takes the room. `n` is the number of messages
   // that the caller has left out before this one; the line names it unless it is 0.
   bool okToLog(unsigned n) const;
   void log(unsigned n, char const* const* args, unsigned count) const;

  private:
   char const* const name_;
   int const severity_;
   std::string text_;
   char const* const recommendedAction_;
   Seconds const interval_;
   double const burst_;
   mutable double room_;          // messages that may come now
   mutable Seconds refilled_ = 0; // when room was last added to
};

// Takes the messages instead of syslog; null gives them back to it. For tests, and
// for a process in the foreground.
using LogSink = void (*)(int severity, std::string const& line);
void logSinkIs(LogSink sink);
// The facility part of each line; "VORN" unless set.
void logFacilityIs(char const* facility);

} // namespace Kem
