#include "base/FieldText.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(FieldText, EndsAtTheTerminator) {
    const char field[8] = {'e', 't', 'h', '1', '\0', 'x', 'y', 'z'};
    EXPECT_STREQ("eth1", fieldText(field).c_str());
}

TEST(FieldText, EndsAtTheFieldWithoutATerminator) {
    const char field[4] = {'e', 't', 'h', '1'};
    EXPECT_STREQ("eth1", fieldText(field).c_str());
}

TEST(FieldText, CutsWhatDoesNotFit) {
    char field[5];
    std::memset(field, 'x', sizeof field);
    setFieldText(field, "stack0");
    EXPECT_STREQ("stac", field);
}

TEST(FieldText, StoresAnEmptyText) {
    char field[5] = "abcd";
    setFieldText(field, "");
    EXPECT_STREQ("", field);
}

}  // namespace
