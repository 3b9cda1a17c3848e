#include "KernelOperState/IntfStatusOperStatusSm.h"

#include "Kem/Activity.h"
#include "KernelOperState/Root.h"
#include "KernelOperState/TestKernel.h"

#include <gtest/gtest.h>

namespace {

using Interface::IntfOperStatus;

struct IntfStatusOperStatusSmTest : testing::Test {
   IntfStatusOperStatusSmTest() {
      status->deviceNameIs("vlan10");
      status->operStatusIs(IntfOperStatus::intfOperUp);
   }
   void start() {
      sm = Kem::makePtr<KernelOperState::IntfStatusOperStatusSm>(Kem::activityManager()->config(), dir,
                                                                 localDir, kernel.manager(), namespaces);
   }
   // With the interface of the test in both directories, and its state given to the kernel.
   void startWithInterface() {
      dir->intfStatusIs(status);
      localDir->intfStatusLocalIs(local);
      start();
      EXPECT_EQ(kernel.take(), ":vlan10=6;");
   }
   std::string settled() {
      Kem::activityManager()->runUntilIdle();
      return kernel.take();
   }

   KernelOperState::TestKernel kernel;
   Kem::Ptr<Interface::IntfStatus> status = Interface::IntfStatus::make("Vlan10");
   Kem::Ptr<Interface::IntfStatusLocal> local = Interface::IntfStatusLocal::make("Vlan10");
   Kem::Ptr<KernelOperState::IntfStatusDir> dir = KernelOperState::IntfStatusDir::make();
   Kem::Ptr<KernelOperState::IntfStatusLocalDir> localDir = KernelOperState::IntfStatusLocalDir::make();
   Kem::Ptr<KernelNetNsInfo::Root> namespaces = KernelNetNsInfo::Root::make();
   Kem::Ptr<KernelOperState::IntfStatusOperStatusSm> sm;
};

TEST_F(IntfStatusOperStatusSmTest, interfacesThatStandAreToldOnceWhenItIsMade) {
   startWithInterface();
   EXPECT_EQ(settled(), "");
}

TEST_F(IntfStatusOperStatusSmTest, interfaceTakesPartOnceItStandsInBothDirectories) {
   start();
   dir->intfStatusIs(status);
   EXPECT_EQ(settled(), "");
   localDir->intfStatusLocalIs(local);
   EXPECT_EQ(settled(), ":vlan10=6;");
   dir->intfStatusDel("Vlan10");
   status->operStatusIs(IntfOperStatus::intfOperDown);
   EXPECT_EQ(settled(), "");
   dir->intfStatusIs(status);
   EXPECT_EQ(settled(), ":vlan10=5;");
   localDir->intfStatusLocalDel("Vlan10");
   status->operStatusIs(IntfOperStatus::intfOperUp);
   EXPECT_EQ(settled(), "");
}

TEST_F(IntfStatusOperStatusSmTest, interfaceThatLeftAndCameBackIsToldAgain) {
   startWithInterface();
   localDir->intfStatusLocalDel("Vlan10");
   settled();
   localDir->intfStatusLocalIs(local);
   EXPECT_EQ(settled(), ":vlan10=6;");
   dir->intfStatusDel("Vlan10");
   settled();
   dir->intfStatusIs(status);
   EXPECT_EQ(settled(), ":vlan10=6;");
}

TEST_F(IntfStatusOperStatusSmTest, changesOfStateAreMirrored) {
   startWithInterface();
   status->operStatusIs(IntfOperStatus::intfOperLowerLayerDown);
   EXPECT_EQ(settled(), ":vlan10=5;");
   status->operStatusIs(IntfOperStatus::intfOperUp);
   status->operStatusIs(IntfOperStatus::intfOperLowerLayerDown);
   EXPECT_EQ(settled(), "") << "it is back where it was";
   status->maxMtuIs(9000);
   EXPECT_EQ(settled(), "");
}

TEST_F(IntfStatusOperStatusSmTest, deviceAndNamespaceAreFollowed) {
   startWithInterface();
   local->netNsNameIs("red");
   EXPECT_EQ(settled(), "red:vlan10=6;");
   status->deviceNameIs("vlan010");
   EXPECT_EQ(settled(), "red:vlan010=6;");
   status->deviceNameIs("");
   EXPECT_EQ(settled(), "");
   status->deviceNameIs("vlan010");
   EXPECT_EQ(settled(), "red:vlan010=6;") << "it is a new device perhaps";
}

TEST_F(IntfStatusOperStatusSmTest, whatTheKernelRefusedIsToldAgainWithTheNextEvent) {
   kernel.error = ENODEV;
   dir->intfStatusIs(status);
   localDir->intfStatusLocalIs(local);
   start();
   EXPECT_EQ(kernel.take(), ":vlan10=6;:vlan10=6;") << "once for each directory";
   kernel.error = 0;
   EXPECT_EQ(settled(), "");
   local->netNsNameIs("red");
   local->netNsNameIs("");
   EXPECT_EQ(settled(), ":vlan10=6;");
}

TEST_F(IntfStatusOperStatusSmTest, doSyncTellsInAnyCase) {
   startWithInterface();
   sm->doSyncIntfStatus("Vlan10");
   EXPECT_EQ(kernel.take(), ":vlan10=6;");
   sm->doSyncIntfStatus("Vlan11");
   status->deviceNameIs("");
   sm->doSyncIntfStatus("Vlan10");
   EXPECT_EQ(kernel.take(), "");
}

TEST_F(IntfStatusOperStatusSmTest, doSyncTellsNothingThatTheCallerHasJustTold) {
   startWithInterface();
   EXPECT_EQ(sm->doSyncIntfStatus("Vlan10", IntfOperStatus::intfOperUp), 0);
   EXPECT_EQ(kernel.take(), "");
   EXPECT_EQ(sm->doSyncIntfStatus("Vlan10", IntfOperStatus::intfOperDormant), 0);
   EXPECT_EQ(kernel.take(), ":vlan10=6;");
   status->operStatusIs(IntfOperStatus::intfOperLowerLayerDown); // which is dormant to the kernel
   EXPECT_EQ(sm->doSyncIntfStatus("Vlan10", IntfOperStatus::intfOperDormant), 0);
   EXPECT_EQ(settled(), "");
   status->operStatusIs(IntfOperStatus::intfOperUp);
   EXPECT_EQ(settled(), ":vlan10=6;");
}

TEST_F(IntfStatusOperStatusSmTest, namespaceThatGoesIsLetGo) {
   local->netNsNameIs("red");
   namespaces->netNsByNameIs("red");
   dir->intfStatusIs(status);
   localDir->intfStatusLocalIs(local);
   start();
   EXPECT_EQ(kernel.take(), "red:vlan10=6;");
   status->operStatusIs(IntfOperStatus::intfOperDown);
   EXPECT_EQ(settled(), "red:vlan10=5;");
   EXPECT_EQ(kernel.opened, "red;");
   namespaces->netNsByNameDel("red");
   EXPECT_EQ(settled(), "");
   namespaces->netNsByNameIs("red");
   EXPECT_EQ(settled(), "red:vlan10=5;");
   EXPECT_EQ(kernel.opened, "red;red;");
}

TEST_F(IntfStatusOperStatusSmTest, namespaceThatComesIntoBeingIsToldOfItsDevices) {
   local->netNsNameIs("red");
   kernel.hasNamespaces = false;
   dir->intfStatusIs(status);
   localDir->intfStatusLocalIs(local);
   start();
   EXPECT_EQ(kernel.take(), "");
   kernel.hasNamespaces = true;
   namespaces->netNsByNameIs("blue");
   EXPECT_EQ(settled(), "");
   namespaces->netNsByNameIs("red");
   EXPECT_EQ(settled(), "red:vlan10=6;");
   namespaces->netNsByNameDel("red");
   EXPECT_EQ(settled(), "");
   namespaces->netNsByNameIs("red");
   EXPECT_EQ(settled(), "red:vlan10=6;") << "another namespace under the old name";
}

TEST_F(IntfStatusOperStatusSmTest, replacedRecordIsFollowedInThePlaceOfTheOldOne) {
   startWithInterface();
   auto const other = Interface::IntfStatus::make("Vlan10");
   other->deviceNameIs("vlan10");
   other->operStatusIs(IntfOperStatus::intfOperDown);
   dir->intfStatusIs(other);
   EXPECT_EQ(settled(), ":vlan10=5;");
   status->operStatusIs(IntfOperStatus::intfOperDormant);
   EXPECT_EQ(settled(), "");
   other->operStatusIs(IntfOperStatus::intfOperUp);
   EXPECT_EQ(settled(), ":vlan10=6;");
}

TEST_F(IntfStatusOperStatusSmTest, worksWithoutDirectoriesAndNamespaces) {
   dir = nullptr;
   localDir->intfStatusLocalIs(local);
   start();
   sm->doSyncIntfStatus("Vlan10");
   localDir = nullptr;
   namespaces = nullptr;
   start();
   sm->doSyncIntfStatus("Vlan10");
   EXPECT_EQ(settled(), "");
}

TEST(KernelOperStateRoot, partsAreMadeOnceAndKept) {
   auto const root = Kem::makePtr<KernelOperState::Root>("kosr");
   auto const activity = Kem::activityManager()->config();
   EXPECT_EQ(root->name().str(), "kosr");
   EXPECT_FALSE(root->intfStatusOperStatusSm());
   auto const dir = root->intfStatusDirIs("intfStatusDir");
   auto const localDir = root->intfStatusLocalDirIs("intfStatusLocalDir");
   auto const namespaces = root->netNsCollectionIs("kns");
   EXPECT_EQ(dir->name().str(), "intfStatusDir");
   EXPECT_EQ(localDir->name().str(), "intfStatusLocalDir");
   EXPECT_EQ(namespaces->name().str(), "kns");
   auto const manager = root->netNsManagerIs(activity, namespaces);
   KernelOperState::TestKernel kernel;
   root->kosmIs(kernel.manager());
   auto const kosm = root->kosmIs();
   auto const sm = root->intfStatusOperStatusSmIs(activity, dir, localDir, kosm, namespaces);

   EXPECT_EQ(root->intfStatusDirIs("other"), dir);
   EXPECT_EQ(dir->name().str(), "intfStatusDir");
   EXPECT_EQ(root->intfStatusLocalDirIs("other"), localDir);
   EXPECT_EQ(root->netNsCollectionIs("other"), namespaces);
   EXPECT_EQ(root->netNsManagerIs(activity, nullptr), manager);
   EXPECT_EQ(root->kosmIs(), kosm);
   EXPECT_EQ(root->intfStatusOperStatusSmIs(activity, nullptr, nullptr, nullptr, nullptr), sm);
   EXPECT_EQ(root->intfStatusOperStatusSm(), sm);
   EXPECT_EQ(root->netNsManager(), manager);

   // The machine works on the directories of the root.
   auto const status = Interface::IntfStatus::make("Vlan10");
   status->deviceNameIs("vlan10");
   dir->intfStatusIs(status);
   localDir->intfStatusLocalIs(Interface::IntfStatusLocal::make("Vlan10"));
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(kernel.take(), ":vlan10=5;");
}

TEST_F(IntfStatusOperStatusSmTest, stateThatTheKernelRefusedIsSentAgainEachTimeLater) {
   Kem::VirtualTime const time;
   startWithInterface();
   kernel.error = ENOBUFS;
   status->operStatusIs(IntfOperStatus::intfOperDown);
   EXPECT_EQ(settled(), ":vlan10=5;");
   Kem::activityManager()->advance(0.9);
   EXPECT_EQ(kernel.take(), "");
   Kem::activityManager()->advance(0.1);
   EXPECT_EQ(kernel.take(), ":vlan10=5;");
   Kem::activityManager()->advance(1.9);
   EXPECT_EQ(kernel.take(), "");
   kernel.error = 0;
   Kem::activityManager()->advance(0.1);
   EXPECT_EQ(kernel.take(), ":vlan10=5;");
   Kem::activityManager()->advance(1000);
   EXPECT_EQ(kernel.take(), "");
}

} // namespace
