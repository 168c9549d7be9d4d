// The store gets the names of regions that have no type of their own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/UploadFixture.h"

namespace qx {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class RegionName : public UploadFixture {
 protected:
  void generate(const std::string& region) {
    UploadTokenModel model;
    model.region = region;
    library.configure.generateAWSConfiguration("avatar", model);
  }
};

TEST_F(RegionName, NameOutsideTheTableReachesTheStoreBesideTypeZero) {
  for (const char* name : {"auto", "garage", "me-south-1", "US-EAST-1", "a_b.c"}) generate(name);
  const auto registrations = platform.objectStore.registrations();
  ASSERT_THAT(registrations, SizeIs(5));
  for (const auto& registration : registrations) {
    EXPECT_EQ(registration.configuration.region, AWSRegionType::unknown);
  }
  EXPECT_EQ(registrations[0].configuration.regionName, "auto");
  EXPECT_EQ(registrations[2].configuration.regionName, "me-south-1");
  EXPECT_THAT(platform.mediator.trackedEvents(), IsEmpty());
}

TEST_F(RegionName, NameOfTheTableGoesBesideItsType) {
  generate("eu-north-1");
  const auto registrations = platform.objectStore.registrations();
  ASSERT_THAT(registrations, SizeIs(1));
  EXPECT_EQ(registrations[0].configuration.region, AWSRegionType{25});
  EXPECT_EQ(registrations[0].configuration.regionName, "eu-north-1");
}

TEST_F(RegionName, NameThatCannotBeSignedIsTheTrackedFailure) {
  const Dictionary expected = {
      {"message", "[Error] AWS-avatar config error"}, {"status", "error"}, {"type", "config"}};
  std::size_t failures = 0;
  for (const std::string& name :
       {std::string(), std::string("us-east-1 "), std::string("a/b"), std::string("a\nb"),
        std::string("m\xc3\xa4rz"), std::string("a\0b", 3), std::string(65, 'a')}) {
    generate(name);
    EXPECT_THAT(platform.objectStore.registrations(), IsEmpty()) << name;
    ASSERT_THAT(platform.mediator.trackedEvents(), SizeIs(++failures)) << name;
    EXPECT_EQ(platform.mediator.trackedEvents().back(), expected);
  }
}

}  // namespace
}  // namespace qx
