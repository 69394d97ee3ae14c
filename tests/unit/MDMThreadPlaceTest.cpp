#include "MDMThreadPlace.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace {

std::size_t placeOfAnotherThread() {
    std::size_t place = 0;
    std::thread([&place] { place = MDMThreadPlace::current(); }).join();
    return place;
}

}  // namespace

TEST(MDMThreadPlace, AThreadKeepsItsPlace) {
    EXPECT_EQ(MDMThreadPlace::current(), MDMThreadPlace::current());
}

TEST(MDMThreadPlace, EightThreadsThatFollowEachOtherHaveDifferentPlaces) {
    std::set<std::size_t> places;
    for (int i = 0; i < 8; ++i)
        places.insert(placeOfAnotherThread());
    EXPECT_EQ(places, (std::set<std::size_t>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(MDMThreadPlace, ThePlacesAreGivenOutAgain) {
    for (int i = 0; i < 20; ++i)
        EXPECT_LT(placeOfAnotherThread(), 8u);
}
