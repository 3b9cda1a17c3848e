// The base of the machine of each event monitor table: follows what the operator asks to be logged, and calls
// doOnTableEnabled() whenever that may have changed for its own table.
//
//    an entry of `table` comes, goes or is replaced    ──► tableIs / tableDel ─┐
//    `enabled` of an entry changes                                            ├─► tableNotify(its name)
//    the configuration is bound or unbound            ──► for its own table ──┘        │
//    the trace stream changes while one is bound                             own table? doOnTableEnabled()
//
// What a table logs, and whether that runs at the moment, is the derived class's matter: in
// doOnTableEnabled() it looks its table up and makes or drops its logger. It may be called when nothing is
// different. Other attributes of the configuration are read, and followed if need be, by the logger itself.
//
// A derived class calls eventMonConfigIs in its constructor, which evaluates at once; the base's constructor
// can't, because doOnTableEnabled() isn't the derived one yet.
#pragma once

#include "Kem/StateMachine.h"
#include "records/EventMon/Config.h"
#include "records/EventMon/TableConfig.h"

namespace EventMon {

class EventMonConfigSm : public Kem::StateMachine {
  public:
   Kem::Name const& tableName() const { return tableName_; }

   Kem::Ptr<Config const> const& eventMonConfig() const { return eventMonConfig_; }
   // Null ends it: every table counts as gone. Calls doOnTableEnabled() before it returns, unless that is the
   // configuration already.
   void eventMonConfigIs(Kem::Ptr<Config const> const& eventMonConfig);

   // The entry of this machine's own table; null where there is none.
   Kem::Ptr<TableConfig const> ownTable() const;

   // Trace stream that rows go to; null means none.
   Kem::Ptr<Kem::PtrInterface> const& zvHandle() const { return zvHandle_; }
   void zvHandleIs(Kem::Ptr<Kem::PtrInterface> const& zvHandle);

   // Follows that entry from now on, in the place of another one of its name; stops following that of the
   // name. Neither calls anybody.
   void tableIs(Kem::Ptr<TableConfig const> const& table);
   void tableDel(Kem::Name const& name);
   // Something happened to the table of that name.
   void tableNotify(Kem::Name const& name);

  protected:
   explicit EventMonConfigSm(Kem::Name tableName) : tableName_(std::move(tableName)) {}

   // The table was enabled, disabled, replaced or removed, or what goes with it has changed.
   virtual void doOnTableEnabled() = 0;

  private:
   // --- Reactions.
   struct KemEventMonConfig final : Config::NotifieeConst {
      explicit KemEventMonConfig(EventMonConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onTable(Kem::Name const& name) override { sm.handleTable(name); }
      EventMonConfigSm& sm;
   };
   struct KemTableConfig final : TableConfig::NotifieeConst {
      explicit KemTableConfig(EventMonConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onEnabled() override { sm.tableNotify(notifier()->tableName()); }
      EventMonConfigSm& sm;
   };
   void handleTable(Kem::Name const& name);
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemEventMonConfig_, table_); }

   Kem::Name const tableName_;
   Kem::Ptr<Config const> eventMonConfig_;
   Kem::Ptr<Kem::PtrInterface> zvHandle_;
   Kem::HashMap<KemTableConfig, Kem::Name> table_;
   KemEventMonConfig kemEventMonConfig_{*this};
};

} // namespace EventMon
