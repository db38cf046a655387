#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakePlatform.h"
#include "frame/CInstanceMgr.h"

// Each test starts from an empty fake platform and talks to the library's one manager.
class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override { fake::fakePlatform().reset(); }
    void TearDown() override { fake::fakePlatform().reset(); }

    static fake::FakePlatform& platform() { return fake::fakePlatform(); }
    static ZQTELMIMgrBus::CInstanceMgr& mgr() { return *CSingleton<ZQTELMIMgrBus::CInstanceMgr>::Instance(); }
};
