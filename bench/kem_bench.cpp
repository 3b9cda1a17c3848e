// What the object platform costs: a change of a record with and without reactors, its way to a handler, the
// tables, a trace that is off, a timer, a turn of the loop.
//
// Each figure is for one operation, or where the name says so for a whole table of the given size. The keys
// of tables are those of a switch: numbers of ports as they are packed ("Ethernet3/1": slot above bit 14,
// port below), and names.
#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/Collections.h"
#include "Kem/Dir.h"
#include "Kem/Notifiee.h"
#include "Kem/Record.h"
#include "Kem/String.h"
#include "Kem/Trace.h"

#include <benchmark/benchmark.h>
#include <memory>
#include <vector>

namespace {

using Kem::AttrId;
using Kem::Ptr;

// --- A record with one scalar and one collection, and its reactors.

class Sample final : public Kem::Record {
  public:
   enum : AttrId { kScalar = 0, kMember = 1, kOther = 2, kAttributeCount = 3 };
   class NotifieeConst;
   static Kem::TypeInfo const typeInfo_;
   static Ptr<Sample> make() { return Ptr<Sample>::adopt(new Sample); }

   void scalarIs(uint64_t v) { Record::scalarIs(scalar_, kScalar, v); }
   void memberIs(uint32_t key, uint64_t v) { Record::memberIs(member_, kMember, key, v); }
   void memberDel(uint32_t key) { Record::memberDel(member_, kMember, key); }
   uint64_t const* member(uint32_t key) const { return member_.find(key); }

   char const* attributeString(AttrId) const override { return ""; }
   Kem::TypeInfo const& typeInfo() const override { return typeInfo_; }
   AttrId attributeCount() const override { return kAttributeCount; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Entity const&, Kem::AttributeSink&) const override {}

  private:
   Sample() = default;
   uint64_t scalar_ = 0;
   Kem::ValueMap<uint32_t, uint64_t> member_;
};

Kem::TypeInfo const Sample::typeInfo_ = {"Sample", Kem::noTypeId, nullptr, nullptr};

class Sample::NotifieeConst : public Kem::Notifiee {
  public:
   virtual void onScalar() {}
   virtual void onMember(uint32_t key) {}
   virtual void onOther() {}
   void notifierIs(Ptr<Sample const> const& sample) { notifierBind(sample); }

  protected:
   template <class Derived>
   explicit NotifieeConst(Derived*)
       : Notifiee(
             {.keyed = uint64_t(KEM_OVERRIDES_KEYED(Derived, NotifieeConst, onMember, uint32_t)) << kMember,
              .plain = uint64_t(KEM_OVERRIDES(Derived, NotifieeConst, onScalar)) << kScalar |
                       uint64_t(KEM_OVERRIDES(Derived, NotifieeConst, onOther)) << kOther}) {}
   void onAttribute(AttrId id) override { id == kScalar ? onScalar() : onOther(); }
   void onMember(AttrId id) override { onMember(takePending(pending_, id)); }
   void memberPending(AttrId, void const* key) override { pending_.add(*static_cast<uint32_t const*>(key)); }
   void memberPendingClear(AttrId) override { pending_.clear(); }

  private:
   Kem::PendingKeys<uint32_t> pending_;
};

struct HearsBoth final : Sample::NotifieeConst {
   explicit HearsBoth(Ptr<Sample> const& sample) : NotifieeConst(this) { notifierIs(sample); }
   void onScalar() override { ++heard; }
   void onMember(uint32_t) override { ++heard; }
   uint64_t heard = 0;
};
struct HearsOther final : Sample::NotifieeConst {
   explicit HearsOther(Ptr<Sample> const& sample) : NotifieeConst(this) { notifierIs(sample); }
   void onOther() override {}
};

template <class Reactor>
std::vector<std::unique_ptr<Reactor>> reactors(Ptr<Sample> const& sample, int64_t count) {
   std::vector<std::unique_ptr<Reactor>> all;
   for (int64_t i = 0; i < count; ++i)
      all.push_back(std::make_unique<Reactor>(sample));
   return all;
}

// The same attribute again and again: with reactors they are queued once and stay so.
void mutateScalar(benchmark::State& state) {
   auto const sample = Sample::make();
   auto const followers = reactors<HearsBoth>(sample, state.range(0));
   uint64_t value = 0;
   for (auto _ : state)
      sample->scalarIs(++value);
   Kem::activityManager()->runUntilIdle();
}
BENCHMARK(mutateScalar)->ArgName("reactors")->Arg(0)->Arg(1)->Arg(10);

void mutateScalarThatNobodyWants(benchmark::State& state) {
   auto const sample = Sample::make();
   auto const followers = reactors<HearsOther>(sample, state.range(0));
   uint64_t value = 0;
   for (auto _ : state)
      sample->scalarIs(++value);
}
BENCHMARK(mutateScalarThatNobodyWants)->ArgName("reactors")->Arg(10);

// One key of 512.
void mutateMember(benchmark::State& state) {
   auto const sample = Sample::make();
   for (uint32_t key = 0; key < 512; ++key)
      sample->memberIs(key, 0);
   auto const followers = reactors<HearsBoth>(sample, state.range(0));
   uint64_t value = 0;
   for (auto _ : state)
      sample->memberIs(7, ++value);
   Kem::activityManager()->runUntilIdle();
}
BENCHMARK(mutateMember)->ArgName("reactors")->Arg(0)->Arg(1)->Arg(10);

// --- From the mutation to the handler.

void deliverScalar(benchmark::State& state) {
   auto const sample = Sample::make();
   auto const followers = reactors<HearsBoth>(sample, state.range(0));
   uint64_t value = 0;
   for (auto _ : state) {
      sample->scalarIs(++value);
      Kem::activityManager()->deliverQueued();
   }
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(deliverScalar)->ArgName("reactors")->Arg(1)->Arg(10);

// So many keys changed, then delivered; the figure per item is what one key costs.
void deliverKeys(benchmark::State& state) {
   auto const sample = Sample::make();
   HearsBoth reactor(sample);
   uint64_t value = 0;
   for (auto _ : state) {
      ++value;
      for (uint32_t key = 0; key < state.range(0); ++key)
         sample->memberIs(key, value);
      Kem::activityManager()->deliverQueued();
   }
   state.SetItemsProcessed(static_cast<int64_t>(reactor.heard));
}
BENCHMARK(deliverKeys)->ArgName("keys")->Arg(1)->Arg(16)->Arg(512)->Arg(4094);

// --- Tables.

template <class Key>
std::vector<Key> keys(int64_t count) {
   std::vector<Key> all;
   for (int64_t i = 0; i < count; ++i) {
      auto const slot = static_cast<uint32_t>(i / 64 + 1), port = static_cast<uint32_t>(i % 64 + 1);
      if constexpr (std::is_same_v<Key, Kem::Name>)
         all.push_back(Kem::Name("Ethernet" + std::to_string(slot) + '/' + std::to_string(port)));
      else
         all.push_back(2u << 27 | slot << 14 | port);
   }
   // Found in another order than they were made.
   for (size_t i = all.size(); i > 1; --i)
      std::swap(all[i - 1], all[i * 2654435761u % i]);
   return all;
}

template <template <class, class> class Table, class Key>
Table<Key, uint64_t> filled(std::vector<Key> const& all) {
   Table<Key, uint64_t> table;
   for (auto const& key : all)
      table.findOrInsert(key, [] { return uint64_t(1); });
   return table;
}

// A whole table from nothing.
template <template <class, class> class Table, class Key>
void insert(benchmark::State& state) {
   auto const all = keys<Key>(state.range(0));
   for (auto _ : state) {
      auto const table = filled<Table, Key>(all);
      benchmark::DoNotOptimize(table.size());
   }
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

template <template <class, class> class Table, class Key>
void find(benchmark::State& state) {
   auto const all = keys<Key>(state.range(0));
   auto const table = filled<Table, Key>(all);
   size_t i = 0;
   for (auto _ : state) {
      benchmark::DoNotOptimize(table.find(all[i]));
      i = i + 1 < all.size() ? i + 1 : 0;
   }
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// With the iterator that survives changes.
template <template <class, class> class Table, class Key>
void iterate(benchmark::State& state) {
   auto const table = filled<Table, Key>(keys<Key>(state.range(0)));
   uint64_t sum = 0;
   for (auto _ : state)
      for (auto at = table.begin(); at; at.next())
         sum += at.value();
   benchmark::DoNotOptimize(sum);
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

template <template <class, class> class Table, class Key>
void forEach(benchmark::State& state) {
   auto const table = filled<Table, Key>(keys<Key>(state.range(0)));
   uint64_t sum = 0;
   for (auto _ : state)
      table.forEach([&](Key const&, uint64_t value) { sum += value; });
   benchmark::DoNotOptimize(sum);
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// A table emptied and filled again, one by one.
template <template <class, class> class Table, class Key>
void eraseAndInsert(benchmark::State& state) {
   auto const all = keys<Key>(state.range(0));
   auto table = filled<Table, Key>(all);
   size_t i = 0;
   for (auto _ : state) {
      table.erase(all[i]);
      table.findOrInsert(all[i], [] { return uint64_t(1); });
      i = i + 1 < all.size() ? i + 1 : 0;
   }
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

#define TABLE_BENCHMARK(function)                                                                            \
   BENCHMARK(function<Kem::HashTable, uint32_t>)->ArgName("entries")->Arg(512)->Arg(100000);                 \
   BENCHMARK(function<Kem::HashTable, Kem::Name>)->ArgName("entries")->Arg(512)->Arg(100000);                \
   BENCHMARK(function<Kem::OrderedTable, uint32_t>)->ArgName("entries")->Arg(512)->Arg(100000);              \
   BENCHMARK(function<Kem::OrderedTable, Kem::Name>)->ArgName("entries")->Arg(512)->Arg(100000)
TABLE_BENCHMARK(insert);
TABLE_BENCHMARK(find);
TABLE_BENCHMARK(iterate);
TABLE_BENCHMARK(forEach);
TABLE_BENCHMARK(eraseAndInsert);

// --- Trace.

Kem::TraceFacility theFacility("Bench");

void emptyLoop(benchmark::State& state) {
   for (auto _ : state)
      benchmark::ClobberMemory();
}
BENCHMARK(emptyLoop);

void traceOff(benchmark::State& state) {
   int vlan = 10;
   for (auto _ : state) {
      KEM_TRACE(theFacility, 9, "handleVlanConfig " << vlan);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(traceOff);

void traceToSink(benchmark::State& state) {
   static uint64_t bytes;
   bytes = 0;
   Kem::traceToStandardErrorIs(false);
   Kem::traceSinkIs([](Kem::TraceLine const& line) { bytes += line.text.size(); });
   int vlan = 10;
   for (auto _ : state)
      KEM_TRACE(theFacility, 0, "handleVlanConfig " << vlan);
   Kem::traceSinkIs(nullptr);
   Kem::traceToStandardErrorIs(true);
   benchmark::DoNotOptimize(bytes);
}
BENCHMARK(traceToSink);

// --- Timers and turns.

struct Timer final : Kem::Clock::NotifieeConst {
   Timer() { notifierIs(Kem::ActivityFacility::clock()); }
   void onTime() override {}
};

// One of so many, set again and again.
void timerSet(benchmark::State& state) {
   std::vector<std::unique_ptr<Timer>> timers;
   for (int64_t i = 0; i < state.range(0); ++i) {
      timers.push_back(std::make_unique<Timer>());
      timers.back()->timeMinIs(Kem::now() + 1000.0 + static_cast<double>(i));
   }
   double later = 0;
   for (auto _ : state)
      timers[0]->timeMinIs(1e9 + ++later);
}
BENCHMARK(timerSet)->ArgName("timers")->Arg(1)->Arg(4094);

void turnWithNothingToDo(benchmark::State& state) {
   for (auto _ : state)
      Kem::activityManager()->runTurn(0);
}
BENCHMARK(turnWithNothingToDo);

void turnWithOneNotification(benchmark::State& state) {
   auto const sample = Sample::make();
   HearsBoth reactor(sample);
   uint64_t value = 0;
   for (auto _ : state) {
      sample->scalarIs(++value);
      Kem::activityManager()->runTurn(0);
   }
}
BENCHMARK(turnWithOneNotification);

void turnWithOneTimer(benchmark::State& state) {
   Timer timer;
   for (auto _ : state) {
      timer.timeMinIs(0.0);
      Kem::activityManager()->runTurn(0);
   }
}
BENCHMARK(turnWithOneTimer);

} // namespace
