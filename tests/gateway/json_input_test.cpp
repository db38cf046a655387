// The management API's JSON input: what a body and its members must be, at their boundaries.
#include <gmock/gmock.h>

#include <functional>
#include <string>

#include "ApiError.h"
#include "JsonInput.h"

using namespace gatewayd;
using testing::HasSubstr;

namespace {

// The message of the refusal body meets, or "accepted".
std::string refusalOf(const std::string& body) {
    try {
        parseObject(body);
        return "accepted";
    } catch (const ApiError& error) {
        EXPECT_EQ(error.httpStatus(), 400);
        return error.what();
    }
}

std::string nested(size_t depth) { return std::string(depth - 1, '[') + std::string(depth - 1, ']'); }

TEST(JsonInputTest, BodiesAreOneStrictObjectNestedAtMostSixteenDeep) {
    EXPECT_EQ(refusalOf(R"({"a": [1, {"b": null}]})"), "accepted");
    EXPECT_EQ(refusalOf("[1]"), "the body must be a JSON object");
    for (const char* broken : {"", "{", R"({"a": 1} x)", R"({"a": 1, "a": 2})", "{'a': 1}"}) {
        EXPECT_THAT(refusalOf(broken), HasSubstr("the body is not valid JSON")) << broken;
    }
    EXPECT_EQ(refusalOf("{\"a\": " + nested(kMaxJsonDepth) + "}"), "accepted");
    EXPECT_EQ(refusalOf("{\"a\": " + nested(kMaxJsonDepth + 1) + "}"), "the body is nested deeper than 16 levels");
}

TEST(JsonInputTest, MembersAreRefusedByNameWhenMissingMistypedOrTooLong) {
    const Json::Value body = parseObject(R"({"name": "abcd", "nul": "a\u0000b", "n": 7, "f": 7.5, "big": 4294967296})");
    EXPECT_EQ(textMember(body, "name", 4), "abcd");
    EXPECT_EQ(optionalTextMember(body, "absent", 4, "fallback"), "fallback");
    EXPECT_EQ(intMember(body, "n", 7, 7), 7);
    const struct {
        std::function<void()> read;
        const char* message;
    } refusals[] = {
        {[&] { textMember(body, "absent", 4); }, "\"absent\" is missing"},
        {[&] { textMember(body, "n", 4); }, "\"n\" must be a string"},
        {[&] { textMember(body, "name", 3); }, "\"name\" is longer than 3 characters"},
        {[&] { textMember(body, "nul", 8); }, "\"nul\" contains a NUL character"},
        {[&] { intMember(body, "f", 0, 10); }, "\"f\" must be an integer"},
        {[&] { intMember(body, "n", 8, 10); }, "\"n\" must be between 8 and 10"},
        {[&] { intMember(body, "big", 0, 10); }, "\"big\" must be between 0 and 10"},
    };
    for (const auto& refusal : refusals) {
        try {
            refusal.read();
            ADD_FAILURE() << "accepted: " << refusal.message;
        } catch (const ApiError& error) {
            EXPECT_EQ(std::string(error.what()), refusal.message);
        }
    }
}

TEST(JsonInputTest, BatchesHoldOneToAThousandItemsOfTheirType) {
    Json::Value body;
    for (int i = 0; i < 1000; ++i) {
        body["names"].append("n" + std::to_string(i));
        body["items"].append(Json::objectValue);
    }
    EXPECT_EQ(textArrayMember(body, "names", 8).size(), 1000u);
    EXPECT_EQ(objectArrayMember(body, "items").size(), 1000u);
    body["names"].append("one too many");
    body["items"][3] = "not an object";
    body["empty"] = Json::arrayValue;
    EXPECT_THROW(textArrayMember(body, "names", 16), ApiError);
    EXPECT_THROW(textArrayMember(body, "empty", 16), ApiError);
    EXPECT_THROW(objectArrayMember(body, "items"), ApiError);
}

}  // namespace
