#include "Release.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct Object {
    int releases = 0;
};

int release(Object* pObject) {
    return ++pObject->releases;
}

}  // namespace

TEST(Release, IsCalledOnceForAnObject) {
    Object object;
    { const std::unique_ptr<Object, base::Release<release>> sut(&object); }
    EXPECT_EQ(object.releases, 1);
}

TEST(Release, CostsThePointerNothing) {
    EXPECT_EQ(sizeof(std::unique_ptr<Object, base::Release<release>>), sizeof(Object*));
}
