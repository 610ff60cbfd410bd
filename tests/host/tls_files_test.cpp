#include <TavIDL/host/Remote.h>
#include <gmock/gmock.h>

#include <stdexcept>

namespace {

TEST(TlsFilesTest, SayWhyTheyCannotBeUsed) {
    TavIDL::Settings settings;
    settings.tls.enabled = true;
    settings.tls.trusted = "/nonexistent/file.pem";
    try {
        const TavIDL::RemoteEmp emp("localhost:1", settings);
        FAIL() << "accepted a file that does not exist";
    } catch (const std::invalid_argument& refused) {
        EXPECT_THAT(refused.what(),
                    testing::HasSubstr("'/nonexistent/file.pem': No such file or directory"));
    }
}

}  // namespace
