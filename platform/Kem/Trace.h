// Trace lines for developers: a facility for each module, with levels.
//
//    0 failures and state changes that matter   1 missing objects   3, 5 flow   8, 9 entry to handlers
//
// A disabled trace costs two byte reads: the facility's byte of the level, and the coverage byte. What is
// enabled is given by a setting, a list of PATTERN/LEVELS, later ones winning:
//
//    "*/0,Vorn*/0-5,Ordel/9"      * matches any run of characters; LEVELS is n-m, n for 0-n, "-" for none
//
// It comes from the environment variable KEM_TRACE at start, and while the process runs from traceSettingIs,
// which the agent's runner and the database call with what is in the state tree. Lines go to standard
// error, and to the trace sink (the circular file) once there is one. The sink can have a mask of its own, so
// that the file holds the flow that led to a crash while standard error stays quiet.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

namespace Kem {

inline constexpr int traceLevelCount = 10;

class TraceFacility {
  public:
   // `name` must outlive the facility, which is static in its module. By default level 0 is enabled.
   explicit TraceFacility(char const* name);
   ~TraceFacility();
   TraceFacility(TraceFacility const&) = delete;
   TraceFacility& operator=(TraceFacility const&) = delete;

   char const* name() const { return name_; }
   bool isEnabled(int level) const { return levels_[level] != 0; } // for standard error, the sink or both

  private:
   friend void traceHelper(TraceFacility const& facility, char const* name, std::ostringstream& stream,
                           int level, bool flag, char const* file, int line, char const* function);
   friend void applyToAll();
   void apply();

   uint8_t levels_[traceLevelCount] = {}; // bit 0: by the setting, bit 1: for the sink alone
   char const* name_;
};

// When set, the text of every trace is built, enabled or not: for a test that all of them can be.
extern uint8_t coverageStream_;

// Replaces the setting of all facilities, those made later too. An entry that can't be read is left out and
// named in a line on standard error.
void traceSettingIs(std::string_view setting);

struct TraceLine {
   char const* facility;
   int level;
   char const* file;
   int line;
   char const* function;
   std::string_view text;
};

// Also gets each line; null for none. `setting` names further lines that the sink gets, and standard error
// doesn't; those of the other setting come to it in any case.
void traceSinkIs(void (*sink)(TraceLine const& line), std::string_view setting = {});
// Whether lines go to standard error too. On at first.
void traceToStandardErrorIs(bool on);

// Writes one line of an enabled trace; `flag` false builds the text and drops it.
void traceHelper(TraceFacility const& facility, char const* name, std::ostringstream& stream, int level,
                 bool flag, char const* file, int line, char const* function);

} // namespace Kem

// KEM_TRACE(theFacility, 3, "Vlan " << vlanId << " is dynamic now");
#define KEM_TRACE(facility, level, text)                                                                     \
   do {                                                                                                      \
      bool const kemIsEnabled = (facility).isEnabled(level);                                                 \
      if (kemIsEnabled || ::Kem::coverageStream_) [[unlikely]] {                                             \
         std::ostringstream kemStream;                                                                       \
         kemStream << text;                                                                                  \
         ::Kem::traceHelper(facility, (facility).name(), kemStream, level, kemIsEnabled, __FILE__, __LINE__, \
                            __func__);                                                                       \
      }                                                                                                      \
   } while (false)
