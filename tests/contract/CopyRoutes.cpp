#include "contract/CopyRoutes.h"

#include "contract/LocalEntries.h"
#include "support/RequireServer.h"

#include <array>

namespace TarnisTest {

namespace {

const char* nameOf(Route route)
{
    switch (route) {
    case Route::Within:
        return "Within";
    case Route::Between:
        return "Between";
    case Route::FromLocal:
        return "FromLocal";
    case Route::ToLocal:
        return "ToLocal";
    }
    return "Unknown";
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const CopyRoute& route)
{
    return stream << route.backend << nameOf(route.route);
}

std::vector<CopyRoute> copyRoutes()
{
    constexpr std::array<Route, 4> all = {Route::Within, Route::Between, Route::FromLocal,
                                          Route::ToLocal};
    std::vector<CopyRoute> routes;
    for (const Backend& backend : backends()) {
        for (const Route route : all) {
            routes.push_back({backend, route});
        }
    }
    return routes;
}

std::string copyRouteName(const testing::TestParamInfo<CopyRoute>& info)
{
    return info.param.backend.name + nameOf(info.param.route);
}

void CopyRouteTest::SetUp()
{
    if (!requireServer(GetParam().backend.availability())) {
        return;
    }
    underTest_ = GetParam().backend.make();
    const Route route = GetParam().route;
    const auto& system = underTest_->fileSystem();
    const std::string local = localDirectory_.emplace().path().string();

    source_ = route == Route::FromLocal ? &local_ : &system;
    sourceRoot_ = (route == Route::FromLocal ? local : underTest_->directory()) + "/source";
    target_ = &system;
    if (route == Route::Between) {
        target_ = &underTest_->otherFileSystem();
    } else if (route == Route::ToLocal) {
        target_ = &local_;
    }
    targetRoot_ = (route == Route::ToLocal ? local : underTest_->directory()) + "/target";
    ASSERT_TRUE(source_->directoryCreateAs(sourceRoot_, true));
    ASSERT_TRUE(target_->directoryCreateAs(targetRoot_, true));
}

std::string CopyRouteTest::sourcePath(std::string_view name) const
{
    return sourceRoot_ + "/" + std::string(name);
}

std::string CopyRouteTest::targetPath(std::string_view name) const
{
    return targetRoot_ + "/" + std::string(name);
}

void CopyRouteTest::makeSourcePipe(std::string_view name) const
{
    const auto path = sourcePath(name);
    const bool isLocal = GetParam().route == Route::FromLocal;
    EXPECT_TRUE(isLocal ? makeLocalPipe(path) : underTest_->makePipe(path)) << name;
}

void CopyRouteTest::makeTargetPipe(std::string_view name) const
{
    const auto path = targetPath(name);
    EXPECT_TRUE(isTargetLocal() ? makeLocalPipe(path) : underTest_->makePipe(path)) << name;
}

void CopyRouteTest::makeTargetSocket(std::string_view name) const
{
    const auto path = targetPath(name);
    EXPECT_TRUE(isTargetLocal() ? makeLocalSocket(path) : underTest_->makeSocket(path)) << name;
}

bool CopyRouteTest::makeTargetDevices() const
{
    const auto character = targetPath("character");
    const auto block = targetPath("block");
    return isTargetLocal()
               ? makeLocalCharacterDevice(character) && makeLocalBlockDevice(block)
               : underTest_->makeCharacterDevice(character) && underTest_->makeBlockDevice(block);
}

void CopyRouteTest::makeTargetHardLink(std::string_view name, std::string_view newName) const
{
    const auto path = targetPath(name);
    const auto newPath = targetPath(newName);
    EXPECT_TRUE(isTargetLocal() ? makeLocalHardLink(path, newPath)
                                : underTest_->makeHardLink(path, newPath))
        << newName;
}

Permissions CopyRouteTest::lessUmask(Permissions permissions) const
{
    const std::string probe = targetRoot_ + ".probe";
    EXPECT_TRUE(target_->directoryCreateAs(probe, true, Permissions(0777U)));
    const auto all = target_->fileGetPermissions(probe).value_or(Permissions());
    EXPECT_TRUE(target_->directoryRemove(probe));
    return permissions & all;
}

void CopyRouteTest::makeSource(std::string_view name, std::string_view bytes) const
{
    writeContent(source(), sourcePath(name), bytes);
}

void CopyRouteTest::makeTarget(std::string_view name, std::string_view bytes) const
{
    writeContent(target(), targetPath(name), bytes);
}

std::string CopyRouteTest::sourceContent(std::string_view name) const
{
    return contentOf(source(), sourcePath(name));
}

std::string CopyRouteTest::targetContent(std::string_view name) const
{
    return contentOf(target(), targetPath(name));
}

std::vector<std::string> CopyRouteTest::targetNames() const
{
    return target().directoryListFileNames(targetRoot());
}

} // namespace TarnisTest
