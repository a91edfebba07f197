#include "util/USTOptional.h"

#include <gtest/gtest.h>

TEST(USTOptional, EmptyGivesNullAndFalse) {
    const CUSTOptional<int> optional;
    bool success = true;
    EXPECT_EQ(optional.GetData(success), nullptr);
    EXPECT_FALSE(success);
}

TEST(USTOptional, GivesTheObjectItRefersTo) {
    int object = 7;
    const CUSTOptional<int> optional(object);
    bool success = false;
    EXPECT_EQ(optional.GetData(success), &object);
    EXPECT_TRUE(success);
}

TEST(USTOptional, AssigningAnObjectReplacesTheReference) {
    int first = 1;
    int second = 2;
    CUSTOptional<int> optional(first);
    optional = second;
    bool success = false;
    EXPECT_EQ(optional.GetData(success), &second);
    EXPECT_EQ(first, 1);
}

TEST(USTOptional, EqualMeansTheSameObjectAndNotTheSameValue) {
    int first = 7;
    int second = 7;
    EXPECT_TRUE(CUSTOptional<int>(first) == CUSTOptional<int>(first));
    EXPECT_FALSE(CUSTOptional<int>(first) == CUSTOptional<int>(second));
    EXPECT_FALSE(CUSTOptional<int>(first) == CUSTOptional<int>());
    EXPECT_TRUE(CUSTOptional<int>() == CUSTOptional<int>());
}

TEST(USTOptional, TakesTheAddressOfATypeThatHidesIt) {
    struct Hidden {
        Hidden* operator&() { return nullptr; }
    } object;
    bool success = false;
    EXPECT_NE(CUSTOptional<Hidden>(object).GetData(success), nullptr);
    EXPECT_TRUE(success);
}
