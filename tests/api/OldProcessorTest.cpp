// The library on a processor without AVX2 and FMA, as a host compiled for that processor sees it. These tests run in an
// emulator; on a newer processor they fail.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <nolk_model.h>

#include <string>
#include <vector>

#include "support/messages.h"

namespace {

template <typename Create>
void expectRefusal(Create create) {
    const std::string text = "this build of nolk needs a processor with AVX2 and FMA";
    testing::internal::CaptureStderr();
    EXPECT_EQ(create(), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), text + "\n");
    EXPECT_EQ(popMessages(), std::vector<std::string>{text});
}

TEST(OldProcessor, NothingIsCreatedAndTheReasonIsReported) {
    EXPECT_STREQ(nolk_version(), "opencv_4.8.0");
    char model[] = {'C', 'M', 1, 0, 0, 0}, other[] = "other format";
    expectRefusal([] { return nolk_new_model_reader(); });
    for (const char* implCfg :
         {static_cast<const char*>(nullptr), ":num_threads=x", "another:a=1", "NolkFast:num_threads=2"}) {
        expectRefusal([=] { return nolk_new_runner_builder(implCfg); });
        expectRefusal([&] { return nolk_new_runner(implCfg, model, sizeof model, 1); });
        expectRefusal([&] { return nolk_new_runner(implCfg, other, sizeof other, 1); });
    }
    expectRefusal([] { return nolk_wrap_batch_runner(nullptr, 1); });
}

#ifdef FAST_BACK_END
// libnolk does not load it there, but a host may.
TEST(OldProcessor, LoadingTheFastBackEndRunsNoneOfItsCode) {
    EXPECT_NE(dlopen(FAST_BACK_END, RTLD_NOW), nullptr) << dlerror();
}
#endif

TEST(OldProcessor, TheCompanionLibraryThrows) {
    EXPECT_THROW(nolk::newModelWriter(), nolk::ModelError);
    EXPECT_THROW(nolk::checkModel("CM", 2), nolk::ModelError);
    EXPECT_THROW(nolk::inspectModel("CM", 2), nolk::ModelError);
    EXPECT_THROW(nolk::loadModel("CM", 2, 1), nolk::ModelError);
}

}  // namespace
