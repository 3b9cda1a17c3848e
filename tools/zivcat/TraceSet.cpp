#include "TraceSet.h"

#include "Printer.h"

#include <algorithm>
#include <limits>
#include <ostream>

namespace Zivcat {

namespace {

constexpr int exitNotTraceFile = 3;
constexpr int exitUnreadable = 4;

std::string baseName(std::string const& path) {
   return path.substr(path.rfind('/') + 1);
}

} // namespace

bool Selection::matches(Zivlog::Record const& record) const {
   return record.level <= maxLevel &&
          (!facility || std::regex_search(record.facility.begin(), record.facility.end(), *facility));
}

TraceSet::TraceSet(std::vector<std::string> const& paths) {
   for (std::string const& path : paths) {
      Trace trace;
      trace.path = path;
      if (paths.size() > 1)
         trace.source = baseName(path);
      traces_.push_back(std::move(trace));
   }
}

void TraceSet::refresh(std::ostream& errors) {
   for (Trace& trace : traces_) {
      std::string const before = std::move(trace.error);
      trace.error.clear();
      trace.failure = 0;
      try {
         load(trace, errors);
      } catch (Zivlog::ReadError const& error) {
         trace.error = error.what();
         trace.failure =
             error.cause() == Zivlog::ReadError::Cause::unreadable ? exitUnreadable : exitNotTraceFile;
         if (trace.error != before)
            errors << "zivcat: " << escaped(trace.path) << ": " << escaped(trace.error) << '\n';
      }
   }
}

// The levels of a file that is still written are not read at the same instant: of two new records only the
// later one may be seen. So the newest sequence number is read first, and records beyond it wait for the
// next time.
void TraceSet::load(Trace& trace, std::ostream& errors) {
   bool const isGrowing = Zivlog::Reader::isBeingWritten(trace.path);
   auto const stamp = Zivlog::Reader::newestStamp(trace.path);
   if (trace.reader && stamp.seed == trace.reader->header().seed && stamp.sequence == trace.loadedSequence)
      return;
   auto reader = Zivlog::Reader::ofFile(trace.path);
   if (trace.reader && reader.header().seed != trace.reader->header().seed) {
      errors << "zivcat: " << escaped(trace.path) << ": new file of pid " << reader.header().pid << '\n';
      trace.seenSequence = 0;
   }
   if (reader.missingBytes() != 0)
      errors << "zivcat: " << escaped(trace.path) << ": cut short, " << reader.missingBytes()
             << " bytes are missing\n";
   trace.completeTo = isGrowing ? stamp.sequence : std::numeric_limits<uint64_t>::max();
   trace.reader = std::move(reader);
   trace.loadedSequence = stamp.sequence;
}

std::vector<TraceSet::Selected> TraceSet::selectNew(Trace& trace, Selection const& selection) {
   std::vector<Selected> selected;
   if (!trace.reader)
      return selected;
   for (size_t i = trace.reader->firstAfter(trace.seenSequence); i < trace.reader->size(); ++i) {
      Zivlog::Record record = trace.reader->at(i);
      if (record.sequence > trace.completeTo)
         break;
      trace.seenSequence = record.sequence;
      if (selection.matches(record))
         selected.push_back({&trace, std::move(record)});
   }
   return selected;
}

size_t TraceSet::print(Selection const& selection, std::optional<size_t> tail, Printer& printer) {
   std::vector<Selected> merged;
   for (Trace& trace : traces_) {
      std::vector<Selected> const next = selectNew(trace, selection);
      std::vector<Selected> both;
      both.reserve(merged.size() + next.size());
      // Merging, unlike sorting, keeps the order within a file where its wall clock was set back.
      std::merge(merged.begin(), merged.end(), next.begin(), next.end(), std::back_inserter(both),
                 [](Selected const& a, Selected const& b) { return a.record.wallNs < b.record.wallNs; });
      merged = std::move(both);
   }
   size_t const first = tail && *tail < merged.size() ? merged.size() - *tail : 0;
   for (size_t i = first; i < merged.size(); ++i)
      printer.record(merged[i].trace->source, *merged[i].trace->reader, merged[i].record);
   return merged.size() - first;
}

void TraceSet::printInfo(Printer& printer) const {
   for (Trace const& trace : traces_) {
      if (trace.reader)
         printer.info(trace.path, *trace.reader, Zivlog::Reader::isBeingWritten(trace.path));
   }
}

bool TraceSet::empty() const {
   return std::none_of(traces_.begin(), traces_.end(),
                       [](Trace const& trace) { return trace.reader.has_value(); });
}

int TraceSet::failure() const {
   int worst = 0;
   for (Trace const& trace : traces_)
      worst = std::max(worst, trace.failure);
   return worst;
}

} // namespace Zivcat
