// A plain account of what the agent has to make of the publishers' intent, event by event: the rules of the
// agent on structs of the standard library. It shares no code with the agent and knows nothing of how that
// is built; where the two differ, one of them is wrong.
//
// It follows order where the rules let the outcome depend on it: which internal VLAN a port has, since when
// a port waits for one, whose name a VLAN bears, what of a port's lists counts. A life of the agent starts
// on what the previous one left in the database and on the intent of that moment, and takes in changes in
// the order in which they are made:
//
//    Agent agent(intent, survivors, now, order);   // the start of a life, up to its first turn
//    agent.changed(change);                        // after the intent was changed
//    agent.run(now);                               // until nothing is left to do
//    agent.outcome()
//
// The rules leave open in which order ports are walked; PortOrder gives it.
//
// Somebody else may edit what the agent resolved. The agent is not notified, so it is put right where the
// rules write the same thing again, and not before: the model needs no rule for it, only the edit itself.
//
// To add a subject: its intent to Intent.h, its outcome to Outcome.h, who is notified of its changes to
// Follower and to Agent::changed and deliver, its rules in a file of its own, and what publishers and the
// neighbour do with it in theirs.
#pragma once

#include "Outcome.h"
#include "RoutedOutcome.h"

#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Model {

// What a life of the agent leaves behind, and the next one starts on.
struct Survivors {
   Outcome outcome;
   // The record that each port's choice names, null when that has been deleted.
   std::map<std::string, std::shared_ptr<Port>> chosen;
};

// The place of each port among the others: in the collections that keep no order of their own, and in those
// that are ordered by port.
struct PortOrder {
   std::map<std::string, int> inTable, byPort;
};

class Agent {
  public:
   Agent(Intent const& intent, Survivors const& survivors, double now, PortOrder const& portOrder);

   void changed(Change const& change);
   // --- Edits by somebody else, of what there is (AgentEdits.cpp).
   void vlanEdited(unsigned number, std::function<void(ResolvedVlan&)> const& edit);
   void portEdited(std::string const& intf, std::function<void(ResolvedPort&)> const& edit);
   void portMadeAgain(std::string const& intf); // with the same mode and VLAN, and all else at its default
   void settingsEdited(std::function<void(Outcome&)> const& edit); // the scalars and small maps
   void choiceDeleted(std::string const& intf);
   void waitDeleted(std::string const& intf);
   void run(double now);
   Outcome outcome() const;
   Births const& births() const { return births_; }
   // Whether the rule says that the processor's port is a member of the resolved VLAN (AgentCpuPort.cpp).
   bool hasCpuPort(unsigned number) const;
   // Whether somebody else has edited what that depends on: then it is as it happens to be.
   bool isCpuPortOpen(unsigned number) const;
   RoutedOutcome routedIntfs() const;

  private:
   // --- The loop (AgentLoop.cpp): who is notified of what, and when.

   // Who follows something; those from vlanEntry on once for each VLAN or port.
   enum Follower {
      inputDir, // the selector, of inputs that come and go
      input,    // the selector, of one input
      selectorIntfs,
      selectorSettings,
      selectorHardware,
      bridgeIntfConfigs, // the bridge, of interfaces that come and go
      bridgeIntfStatuses,
      bridgeVlanIntfs,
      bridgeSettings,
      library,   // of private VLANs, of VLANs that come and go
      primaries, // the private VLANs, of primaries that come and go
      sviMappings,
      vlanStage, // the deferred stage of VLANs, of the selected input
      portStage, // the deferred stage of ports, of the chosen records
      vlanEntry, // one VLAN of the selected input
      vlanCopy,
      portEntry, // one chosen record
      portCopy,
      portConfig,
      portStatus,
      sourceDir,
      source, // one of VLANs
      widenerDir,
      widener,        // one of what trunks may carry
      libraryRole,    // of one VLAN
      libraryPrimary, // the library itself, of one primary
      onePrimary,     // the private VLANs, of one primary
      oneSviMapping,  // of one primary
      inputFdb,       // hosts and groups: one of an input and VLAN
   };
   using FollowerId = std::pair<Follower, std::string>;
   struct Told {
      int attribute;
      std::string key;
      bool operator==(Told const&) const = default;
   };
   void tell(FollowerId const& follower, int attribute = 0, std::string const& key = {});
   void forget(FollowerId const& follower);
   Told takePending(FollowerId const& follower);
   enum class Stage { vlans, ports, relations };
   void arm(Stage stage);
   void deliver(FollowerId const& follower, Told const& told);
   bool deliverBatch();
   void deliverAll();
   bool fireTimers();

   // --- Selection (AgentSelection.cpp).
   void startSelection();
   void handleInputs();
   void handleInput(std::string const& name);
   void hearOut(std::string const& name);
   void followInput(std::shared_ptr<Input> const& in);
   void followSettings();
   void findBestVlanInput();
   void handlePortPriority(Input const& input);
   void decideAllPorts();
   void decidePort(std::string const& intf);
   void chosenIs(std::string const& intf, std::shared_ptr<Port> const& record);
   void handleDefaultRecord(std::string const& intf);
   void handleDefaultRecords();
   void copySettings();
   void copySetting(Setting setting);
   void copyForwardingMode();
   void copyReserved(std::string const& address);
   void copyAllFidsAndReserved();
   std::string inputOf(std::shared_ptr<Port> const& record) const; // "" when nobody has it

   // --- Routed interfaces (AgentRouting.cpp).
   std::string vlanIntfWinner(std::string const& intf) const;
   static bool isVlanIntfName(std::string const& intf);
   VlanIntf const* vlanIntf(std::string const& intf) const;
   bool hasRecords(std::string const& intf) const;
   bool isSecondary(unsigned number) const;
   unsigned vlanIntfState(std::string const& intf) const;
   bool isDuplicate(std::string const& intf) const;
   struct SubIntfState {
      unsigned operStatus;
      bool isInHardware;
   };
   SubIntfState subIntfState(std::string const& intf) const;
   std::optional<RoutedDevice> routedDevice(std::string const& intf, RoutedIntf const& config,
                                            std::string const& base, unsigned vlanId, bool isOn) const;

   // --- VLANs (AgentVlans.cpp).
   void handleSelectedInput();
   void handleVlan(unsigned number);
   void resolvedVlanDel(unsigned number);
   void stageVlan(unsigned number);
   void stageAllVlans();
   void processVlanBacklog();
   void deliverVlan(unsigned number);
   void vlanCopyDel(unsigned number);
   void initializeVlan(unsigned number);
   void retireVlan(unsigned number);
   void mirrorVlan(unsigned number, Told const& told);
   void handleVlanCopy(unsigned number, Told const& told);
   void syncTrunkGroups(unsigned number);
   void handleAdminState(unsigned number);
   void vlanIsBorn(unsigned number);
   void handleVlanIntf(std::string const& intf);
   bool hasVlanIntf(unsigned number) const;

   // --- Dynamic VLANs, and what sources add to trunks (AgentDynamic.cpp).
   void startSources();
   void handleSource(std::string const& name);
   void handleSourceVlans(std::string const& name);
   void handleSourceGroups(std::string const& name);
   void handleSourceGroup(std::string const& name, std::string const& group);
   void giveUpClaims(std::string const& name, VlanSet const& wanted);
   std::string bestSource(unsigned number) const;
   bool isStatic(unsigned number) const;
   void dynamicVlanIs(unsigned number, std::string const& name);
   void dynamicVlanDel(unsigned number);
   void dynamicVlanPassesTo(unsigned number, std::string const& name);
   void handleVlanNoLongerStatic(unsigned number);
   void handleClaimsOfNewChoice();
   bool isDynamic(unsigned number) const;
   void syncOnAllPorts(unsigned number);
   void computeAllAllowed(bool syncs);
   void handleWidener(std::string const& name);
   void handleWidenerReplaced();
   void handleAllowedVlans(std::string const& intf);
   void handleDynamicGroups(std::string const& intf);
   std::set<std::string> dynamicGroupsOf(std::string const& intf) const;
   VlanSet trunkVlans(std::string const& intf, VlanSet allowed);
   VlanSet const& lookAtProtocol();

   // --- Private VLANs (AgentPrivateVlans.cpp).
   void handleLibraryVlan(unsigned number);
   void handleLibraryRole(unsigned number);
   void handleLibraryPrimary(unsigned primary);
   void nameInLibrary(unsigned secondary, unsigned primary);
   void pairInLibrary(unsigned primary, unsigned secondary);
   void syncLibraryRole(unsigned number);
   void tellOfPair(unsigned primary, unsigned secondary);
   bool isPlain(unsigned number) const;
   unsigned primaryOf(unsigned number) const;
   unsigned pairedPrimary(unsigned number) const; // by the resolved roles alone; 0 for none
   void handlePrimary(unsigned primary);
   void handleSecondary(unsigned primary, unsigned secondary);
   void copyFid(unsigned number);
   void handleSviMappings();
   void handleSviMapping(unsigned primary);
   void handleSviServed(unsigned primary, unsigned secondary);
   void handleSviServesAll(unsigned primary);
   void roleIs(unsigned number, Role const& role);
   void touchRelatives(unsigned number);
   void lookAtRelatives();

   // --- Translations (AgentTranslations.cpp).
   bool mapsPrimaries(Port const& copy) const;
   void syncTranslations(std::string const& intf);
   void handleTranslation(std::map<Tags, Tags> const& in, std::map<Tags, Tags>& out, Tags const& key);
   void mapPrimary(std::string const& intf, unsigned primary);
   void syncPrimaryTranslation(std::string const& intf, unsigned primary, unsigned secondary,
                               bool isSecondary);
   void handleMapsOnTrunk(std::string const& intf);
   void handleMappedSecondary(std::string const& intf, unsigned number);
   void handleMapsAllSecondaries(std::string const& intf);
   bool isMappable(std::string const& intf, unsigned number) const;

   // --- Static hosts and groups (AgentHosts.cpp).
   void handleFdb(std::string const& name, unsigned number);
   void handleFdbs(std::string const& name);
   void handleHost(std::string const& name, unsigned number, std::string const& address);
   void handleGroup(std::string const& name, unsigned number, std::string const& address);
   void handleGroupMember(std::string const& name, unsigned number, std::string const& address,
                          std::string const& intf);
   void followGroup(std::string const& name, unsigned number, std::string const& address);
   void forgetGroups(std::string const& name, unsigned number);
   std::shared_ptr<Fdb> fdbOf(std::string const& name, unsigned number) const;
   void settleKind(unsigned number, std::string const& address, std::shared_ptr<Input> const& best);
   void mergedHostIs(unsigned number, std::string const& address, std::shared_ptr<Input> const& best);
   void mergedGroupIs(unsigned number, std::string const& address, std::shared_ptr<Input> const& best);
   void decideAllAddresses(unsigned number);
   std::map<unsigned, MergedFdb> resolvedFdbs() const;

   // --- Ports (AgentPorts.cpp).
   struct PortState {
      Port copy;
      std::shared_ptr<Port const> record; // that the copy follows
      std::set<PortAttr> pending;
      std::shared_ptr<IntfConfig const> config;
      std::shared_ptr<IntfStatus const> status;
      VlanSet allowed, asym;
      bool isAllowedSynced = true; // since they changed last, all VLANs were looked at
      std::set<std::string> dynamicGroups;
      bool isInitialized = false;
   };
   void stagePort(std::string const& intf);
   void createPortEntry(std::string const& intf, std::shared_ptr<Port> const& record);
   void mirrorPort(std::string const& intf, Told const& told);
   void processPortBacklog();
   bool performOneOperation(std::string const& intf);
   void portCopyDel(std::string const& intf);
   void initializePort(std::string const& intf);
   void retirePort(std::string const& intf);
   void handlePortCopy(std::string const& intf, Told const& told);
   void handleIntfConfig(std::string const& intf);
   void handleIntfStatus(std::string const& intf);
   void handleEnabled(std::string const& intf);
   void handleShut(std::string const& intf);
   void handleForwardingModel(std::string const& intf);
   void syncModeAndNative(std::string const& intf);
   void computeAllowed(std::string const& intf);
   void computeAsym(std::string const& intf);
   void syncFlags(std::string const& intf);
   void syncLearning(std::string const& intf);
   void syncFlooding(std::string const& intf);
   void syncAllVlans(std::string const& intf);
   void syncVlan(std::string const& intf, unsigned number); // nothing for one that isn't resolved
   bool isMember(std::string const& intf, unsigned number) const;
   bool isAccessMember(Port const& copy, unsigned native, unsigned number) const;
   Member memberOf(std::string const& intf, unsigned number) const;
   static void sort(std::vector<std::string>& ports, std::map<std::string, int> const& order);
   std::vector<std::string> inTableOrder(std::vector<std::string> ports) const;

   // --- Internal VLANs (AgentInternalVlans.cpp).
   struct ModeAndNative {
      int mode;
      unsigned native;
   };
   ModeAndNative modeAndNative(std::string const& intf); // takes and gives up internal VLANs
   unsigned internalVlanOf(std::string const& intf);
   unsigned allocate() const;
   void release(std::string const& intf, unsigned number);
   void claimed(unsigned number);
   void takeOver();
   void dropStartup(std::string const& intf);
   void recover();

   static constexpr double never = std::numeric_limits<double>::infinity();

   Intent const& intent_;
   double now_;
   PortOrder const& portOrder_;

   // What is visible.
   std::map<unsigned, ResolvedVlan> vlans_;
   std::map<std::string, ResolvedPort> resolved_;
   Births births_;
   std::map<std::string, double> waiting_;
   std::map<std::string, std::shared_ptr<Port>> chosen_;
   std::map<std::string, std::string> chosenFrom_;          // the input's name, also when that has gone
   std::shared_ptr<Input> own_ = std::make_shared<Input>(); // the default records
   Outcome settings_;                                       // the scalars and small maps of it

   // The tables of internal VLANs.
   std::map<unsigned, std::string> routedPort_, startupRoutedPort_;
   std::map<std::string, unsigned> internalVlan_, startupInternalVlan_;

   // The followers' state.
   std::map<std::string, std::shared_ptr<Input>> followed_; // inputs, by name
   std::shared_ptr<Settings> followedSettings_;
   std::shared_ptr<Input> selected_; // of VLANs; may be null
   struct VlanState {
      Vlan copy;
      std::shared_ptr<Vlan const> record; // that the copy follows; null for none
      bool isInitialized = false;
   };
   std::map<unsigned, VlanState> vlanStates_;
   std::map<std::string, PortState> ports_;

   // What the library of private VLANs says and knows.
   std::map<unsigned, std::set<unsigned>> secondaries_; // by primary; one without any is about to go
   std::map<unsigned, Role> roles_;
   std::map<std::string, std::shared_ptr<Source>> sources_; // that are followed
   std::map<std::string, std::shared_ptr<Widener>> wideners_;
   std::map<unsigned, std::set<std::string>> claims_; // by VLAN: the sources
   VlanSet allComputedWith_;                // what only the protocol asks for, when all ports computed last
   VlanSet protocolOnly_, protocolChanges_; // as last looked at; what has changed since all ports computed
   std::set<unsigned> madeDynamic_;         // claimed ones that were made, or taken over
   std::map<unsigned, unsigned> named_;     // the primary that each secondary names, a pair or not
   std::map<unsigned, unsigned> libraryVlans_;  // the birth of each VLAN that it knows
   std::map<unsigned, unsigned> libraryBirths_; // of each primary

   // What follows it.
   struct PrimaryState {
      unsigned birth = 0;
      std::set<unsigned> secondaries{}; // as they were looked at last
   };
   std::map<unsigned, PrimaryState> primaries_;
   std::map<unsigned, std::shared_ptr<SviMapping>> followedMappings_;
   std::set<unsigned> relatives_; // VLANs that are to be looked at
   std::set<unsigned> edited_;    // of which somebody else has edited what the processor's port depends on

   std::map<unsigned, MergedFdb> fdbs_;                                            // by VLAN
   std::map<std::pair<std::string, unsigned>, std::shared_ptr<Fdb>> followedFdbs_; // by input and VLAN
   std::map<std::pair<std::string, std::string>, std::shared_ptr<std::set<std::string>>> followedGroups_;
   std::set<unsigned> vlanBacklog_;
   std::set<std::string> portBacklog_;
   double recoveryTime_ = never;

   std::map<FollowerId, std::map<int, std::vector<std::string>>> pending_;
   struct Queued {
      FollowerId follower;
      unsigned batch; // in which it was queued
   };
   std::deque<Queued> queue_;
   unsigned batch_ = 0;
   std::vector<Stage> armed_; // stages whose clock is set
};

} // namespace Model
