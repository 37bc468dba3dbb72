#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Properties, AndroidRulesForDefaultsLimitsAndReadOnlyKeys) {
    char v[PROPERTY_VALUE_MAX];
    EXPECT_EQ(1, property_get("test.unset", v, "N"));
    EXPECT_STREQ("N", v);
    EXPECT_EQ(0, property_get("test.unset", v, nullptr));
    ASSERT_EQ(0, property_set("test.empty", ""));
    EXPECT_EQ(3, property_get("test.empty", v, "def")) << "an empty value reads as unset";
    EXPECT_EQ(91, property_get("test.unset", v, std::string(200, 'd').c_str()));

    EXPECT_EQ(0, property_set(std::string(31, 'k').c_str(), "x"));
    EXPECT_LT(property_set(std::string(32, 'k').c_str(), "x"), 0);
    EXPECT_EQ(0, property_set("test.long", std::string(91, 'v').c_str()));
    EXPECT_LT(property_set("test.long", std::string(92, 'v').c_str()), 0);
    EXPECT_EQ(91, property_get("test.long", v, nullptr)) << "a refused set keeps the old value";

    EXPECT_EQ(0, property_set("ro.test.once", "1.0"));
    EXPECT_LT(property_set("ro.test.once", "2.0"), 0);
    EXPECT_EQ(3, property_get("ro.test.once", v, nullptr));
    EXPECT_STREQ("1.0", v);
}

}  // namespace
