#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "FakePlatform.h"
#include "StoreRecordText.h"
#include "ZQTELMIMgrBus.h"
#include "frame/CInstanceMgr.h"
#include "frame/Realm.h"

// Every unit test speaks in the library's names and these matchers.
using namespace ZQTELMIMgrBus;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

// Fills a host record's text field; a text as long as the field leaves it without a NUL.
template <size_t N>
void setField(char (&field)[N], const std::string& text) {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(text.size(), N));
}

// One member or getter of every record (or pointer to one), in order: a batch's result codes, say.
template <class Records, class Get>
auto eachOf(const Records& records, Get get) {
    std::vector<std::decay_t<decltype(std::invoke(get, *records.begin()))>> values;
    for (const auto& record : records) {
        values.push_back(std::invoke(get, record));
    }
    return values;
}

inline ZQTELMIMgrBus::tagTelmiQueryReq queryRequest(int startPos, int maxResults, const std::string& keyWord = "") {
    ZQTELMIMgrBus::tagTelmiQueryReq req;
    req.startPos = startPos;
    req.maxResults = maxResults;
    setField(req.keyWord, keyWord);
    return req;
}

// Each test starts from an empty fake platform and talks to the library's one manager.
class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override { fake::fakePlatform().reset(); }
    void TearDown() override { fake::fakePlatform().reset(); }

    static fake::FakePlatform& platform() { return fake::fakePlatform(); }
    static ZQTELMIMgrBus::CInstanceMgr& mgr() { return *CSingleton<ZQTELMIMgrBus::CInstanceMgr>::Instance(); }

    // The texts logged at this level, after their "[member(line)] " prefix.
    static std::vector<std::string> messagesAt(int level) {
        auto lock = fake::lockPlatform();
        std::vector<std::string> messages;
        for (const auto& line : platform().logs) {
            if (line.level == level) {
                messages.push_back(line.text.substr(line.text.find("] ") + 2));
            }
        }
        return messages;
    }
    static std::string lastLog(int level) {
        const auto messages = messagesAt(level);
        return messages.empty() ? "" : messages.back();
    }
};
