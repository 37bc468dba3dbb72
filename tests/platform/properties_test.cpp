#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

TEST(Properties, GetFallsBackToTheDefaultWhenUnsetOrEmpty) {
    char v[PROPERTY_VALUE_MAX];
    EXPECT_EQ(1, property_get("test.unset", v, "N"));
    EXPECT_STREQ("N", v);
    EXPECT_EQ(0, property_get("test.unset", v, nullptr));
    EXPECT_STREQ("", v);
    ASSERT_EQ(0, property_set("test.empty", ""));
    EXPECT_EQ(3, property_get("test.empty", v, "def"));
    ASSERT_EQ(0, property_set("vendor.hid_cmd", "start_server"));
    EXPECT_EQ(12, property_get("vendor.hid_cmd", v, "def"));
    EXPECT_STREQ("start_server", v);
    ASSERT_EQ(0, property_set("vendor.hid_cmd", "stop_server"));
    EXPECT_EQ(11, property_get("vendor.hid_cmd", v, nullptr));
    EXPECT_STREQ("stop_server", v);
}

TEST(Properties, AndroidLimitsAndReadOnlyRules) {
    char v[PROPERTY_VALUE_MAX];
    EXPECT_EQ(0, property_set(std::string(31, 'k').c_str(), "x"));
    EXPECT_LT(property_set(std::string(32, 'k').c_str(), "x"), 0);
    EXPECT_LT(property_set("", "x"), 0);
    EXPECT_EQ(0, property_set("test.long", std::string(91, 'v').c_str()));
    EXPECT_EQ(91, property_get("test.long", v, nullptr));
    EXPECT_LT(property_set("test.long", std::string(92, 'v').c_str()), 0);
    EXPECT_EQ(91, property_get("test.long", v, nullptr)) << "a refused set keeps the old value";
    // A long default is cut to what a value may hold.
    EXPECT_EQ(91, property_get("test.unset", v, std::string(200, 'd').c_str()));

    EXPECT_EQ(0, property_set("ro.tavrinola.version", "1.0"));
    EXPECT_LT(property_set("ro.tavrinola.version", "2.0"), 0);
    property_get("ro.tavrinola.version", v, nullptr);
    EXPECT_STREQ("1.0", v);
}

TEST(Properties, ConcurrentWritersAndReadersSeeWholeValues) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            std::string mine = "test.t" + std::to_string(t);
            for (int i = 0; i < 2000; ++i) {
                std::string value = std::to_string(i) + std::string(40, 'a' + t);
                ASSERT_EQ(0, property_set("test.shared", value.c_str()));
                ASSERT_EQ(0, property_set(mine.c_str(), value.c_str()));
                char v[PROPERTY_VALUE_MAX];
                property_get(mine.c_str(), v, nullptr);
                ASSERT_EQ(value, v);
                property_get("test.shared", v, nullptr);
                ASSERT_EQ(std::string(v).size() - std::string(v).find_first_not_of("0123456789"), 40u);
            }
        });
    }
    for (auto &th : threads) th.join();
}

}  // namespace
