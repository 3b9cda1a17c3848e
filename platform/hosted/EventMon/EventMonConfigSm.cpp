#include "EventMon/EventMonConfigSm.h"

namespace EventMon {

void EventMonConfigSm::eventMonConfigIs(Kem::Ptr<Config const> const& eventMonConfig) {
   if (eventMonConfig == eventMonConfig_)
      return;
   eventMonConfig_ = eventMonConfig;
   table_.clear();
   kemEventMonConfig_.notifierIs(eventMonConfig_);
   if (eventMonConfig_)
      for (auto const& [name, table] : eventMonConfig_->table())
         tableIs(table);
   tableNotify(tableName_);
}

Kem::Ptr<TableConfig const> EventMonConfigSm::ownTable() const {
   return eventMonConfig_ ? eventMonConfig_->table(tableName_) : nullptr;
}

void EventMonConfigSm::zvHandleIs(Kem::Ptr<Kem::PtrInterface> const& zvHandle) {
   if (zvHandle == zvHandle_)
      return;
   zvHandle_ = zvHandle;
   if (eventMonConfig_)
      tableNotify(tableName_);
}

void EventMonConfigSm::tableIs(Kem::Ptr<TableConfig const> const& table) {
   auto const reactor =
       *table_.findOrInsert(table->tableName(), [&] { return Kem::makePtr<KemTableConfig>(*this); }).first;
   reactor->notifierIs(table);
}

void EventMonConfigSm::tableDel(Kem::Name const& name) {
   table_.erase(name);
}

void EventMonConfigSm::tableNotify(Kem::Name const& name) {
   if (name == tableName_)
      doOnTableEnabled();
}

void EventMonConfigSm::handleTable(Kem::Name const& name) {
   if (auto const table = eventMonConfig_->table(name))
      tableIs(table);
   else
      tableDel(name);
   tableNotify(name);
}

} // namespace EventMon
