// The store of the state database at full size: 4094 VLANs with 512 member ports each.
//
// bulkPut: nanoseconds for one `put` of a new member in large blocks, and resident bytes that each
// member costs. bulkNoChange: the same block again, so that nothing is stored or passed on.
// onePut: a block with one change.
#include "Ordel/store/TestRecords.h"
#include "Ordel/store/Tree.h"
#include "Ordel/store/Walk.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <unistd.h>

namespace {

using namespace TestRecords;

constexpr uint16_t vlanCount = 4094;
constexpr unsigned portCount = 512;
constexpr double memberCount = double{vlanCount} * portCount;

double residentBytes() {
   std::ifstream statm("/proc/self/statm");
   double pages = 0;
   statm >> pages >> pages;
   return pages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

uint32_t configNode(Ordel::Tree const& tree) {
   return tree.find("config")->node();
}

std::vector<std::string> const& ports() {
   static std::vector<std::string> const names = [] {
      std::vector<std::string> all;
      for (unsigned i = 0; i < portCount; ++i)
         all.push_back(intfBytes("Ethernet" + std::to_string(i / 4 + 1) + "/" + std::to_string(i % 4 + 1)));
      return all;
   }();
   return names;
}

// As an agent sends them: the VLANs, then their ports, 64 VLANs in a block.
std::vector<Block> makeBlocks(uint32_t node) {
   std::vector<Block> blocks;
   for (uint16_t vlan = 1; vlan <= vlanCount; ++vlan) {
      if (vlan % 64 == 1)
         blocks.emplace_back();
      Block& block = blocks.back();
      block.at(node).create(Config::vlanConfig, u16Bytes(vlan), vlanType);
      block.at(node, {{Config::vlanConfig, u16Bytes(vlan)}});
      for (auto const& port : ports())
         block.put(Vlan::intf, port, portBytes(1, 0, vlan));
   }
   return blocks;
}

void apply(Ordel::Tree& tree, std::vector<Block> const& blocks, benchmark::State& state) {
   for (Block const& block : blocks)
      if (!tree.apply(block).isDone())
         state.SkipWithError("refused");
}

void bulkPut(benchmark::State& state) {
   std::vector<Block> const blocks = makeBlocks(configNode(Ordel::Tree(schema(), 1)));
   double bytes = 0;
   for (auto _ : state) {
      state.PauseTiming();
      auto tree = std::make_unique<Ordel::Tree>(schema(), 1);
      double const before = residentBytes();
      state.ResumeTiming();
      apply(*tree, blocks, state);
      state.PauseTiming();
      if (bytes == 0)
         bytes = residentBytes() - before;
      tree.reset();
      state.ResumeTiming();
   }
   state.counters["time/put"] = benchmark::Counter(memberCount * static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
   state.counters["bytes/member"] = bytes / memberCount;
}
BENCHMARK(bulkPut)->Unit(benchmark::kMillisecond);

// Port by port: each put goes to another VLAN, so each has an `at` of its own.
void bulkPutAcross(benchmark::State& state) {
   uint32_t const node = configNode(Ordel::Tree(schema(), 1));
   Block creation;
   creation.at(node);
   for (uint16_t vlan = 1; vlan <= vlanCount; ++vlan)
      creation.create(Config::vlanConfig, u16Bytes(vlan), vlanType);
   std::vector<Block> blocks;
   for (auto const& port : ports()) {
      Block& block = blocks.emplace_back();
      for (uint16_t vlan = 1; vlan <= vlanCount; ++vlan)
         block.at(node, {{Config::vlanConfig, u16Bytes(vlan)}}).put(Vlan::intf, port, portBytes(1, 0, vlan));
   }
   for (auto _ : state) {
      state.PauseTiming();
      auto tree = std::make_unique<Ordel::Tree>(schema(), 1);
      tree->apply(creation);
      state.ResumeTiming();
      apply(*tree, blocks, state);
      state.PauseTiming();
      tree.reset();
      state.ResumeTiming();
   }
   state.counters["time/put"] = benchmark::Counter(memberCount * static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(bulkPutAcross)->Unit(benchmark::kMillisecond);

void bulkNoChange(benchmark::State& state) {
   Ordel::Tree tree(schema(), 1);
   std::vector<Block> const blocks = makeBlocks(configNode(tree));
   apply(tree, blocks, state);
   for (auto _ : state)
      apply(tree, blocks, state);
   state.counters["time/put"] = benchmark::Counter(memberCount * static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(bulkNoChange)->Unit(benchmark::kMillisecond);

void walkAll(benchmark::State& state) {
   Ordel::Tree tree(schema(), 1);
   apply(tree, makeBlocks(configNode(tree)), state);
   Wire::Writer out;
   for (auto _ : state) {
      Ordel::Walk walk(tree, tree.root(), Ordel::Walk::Extent::deep);
      do
         out.clear();
      while (walk.next(out, 1 << 16));
   }
   state.counters["time/member"] =
       benchmark::Counter(memberCount * static_cast<double>(state.iterations()),
                          benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(walkAll)->Unit(benchmark::kMillisecond);

void onePut(benchmark::State& state) {
   Ordel::Tree tree(schema(), 1);
   uint32_t const node = configNode(tree);
   apply(tree, makeBlocks(node), state);
   Block changes[2];
   for (uint8_t i = 0; i < 2; ++i)
      changes[i]
          .at(node, {{Config::vlanConfig, u16Bytes(2000)}})
          .put(Vlan::intf, ports()[300], portBytes(i, 0, 1));
   size_t turn = 0;
   for (auto _ : state)
      benchmark::DoNotOptimize(tree.apply(changes[++turn % 2]).groups.size());
}
BENCHMARK(onePut);

} // namespace

BENCHMARK_MAIN();
