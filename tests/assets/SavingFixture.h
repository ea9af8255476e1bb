// The fixture of the saving tests: a fresh home whose library the asset manager uses; the
// manager's saving state is reset after each test.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRAssetManager2.h"
#include "support/TestHome.h"

namespace saving_test {

class ManagerWithLibrary : public ::testing::Test {
  protected:
    void openLibrary() {
        library = photolibrary_test::openLibrary(home);
        ASSERT_TRUE(library);
        manager.setPhotoLibrary(library);
    }
    void TearDown() override {
        manager.setAutoSaveAlbumName("");
        manager.setSourceAlbumName("");
        manager.setPhotoLibrary(nullptr);
    }

    testing_support::TestHome home;
    VRAssetManager2& manager = VRAssetManager2::defaultManager();
    std::shared_ptr<platform::PhotoLibrary> library;
};

}  // namespace saving_test
