// The exported functions, through the shared library as a host sees it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <nolk.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string popError(int size = 300) {
    std::vector<char> text(static_cast<std::size_t>(size) + 1, '#');
    nolk_pop_error_message(text.data(), size);
    EXPECT_EQ(text.back(), '#');
    return text.data();
}

class Nolk : public testing::Test {
protected:
    void SetUp() override {
        while (!popError().empty()) {
        }
    }
};

TEST_F(Nolk, ErrorQueueKeepsTheNewestHundredInOrderCutToTheBuffer) {
    for (int i = 0; i < 101; ++i) nolk_push_error_message(std::to_string(1000 + i).c_str());
    nolk_push_error_message("");
    nolk_push_error_message(nullptr);
    for (int i = 1; i < 98; ++i) EXPECT_EQ(popError(), std::to_string(1000 + i));
    EXPECT_EQ(popError(4), "109");  // the rest is lost
    EXPECT_EQ(popError(1), "");
    char untouched = '#';
    nolk_pop_error_message(&untouched, 0);
    nolk_pop_error_message(&untouched, -5);
    nolk_pop_error_message(nullptr, 10);
    EXPECT_EQ(untouched, '#');
    EXPECT_EQ(popError(5), "1100");
    EXPECT_EQ(popError(), "");
}

TEST_F(Nolk, ErrorsComeFromManyThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 20; ++i) nolk_push_error_message((std::to_string(t) + std::to_string(100 + i)).c_str());
        });
    for (std::thread& t : threads) t.join();
    std::vector<std::string> last(4);
    for (int i = 0; i < 80; ++i) {
        const std::string text = popError();
        std::string& before = last[static_cast<std::size_t>(text[0] - '0')];
        EXPECT_LT(before, text);
        before = text;
    }
}

TEST_F(Nolk, TheBuiltInImplementationHasManyNames) {
    EXPECT_STREQ(nolk_version(), "opencv_4.8.0");
    for (const char* cfg :
         {static_cast<const char*>(nullptr), "", "NolkRaw", ":gemm_thresh=5", "NolkRaw:num_threads=2"}) {
        nolk::RunnerBuilder* builder = nolk_new_runner_builder(cfg);
        ASSERT_NE(builder, nullptr);
        builder->destroy();
    }
    EXPECT_THROW(nolk_new_runner_builder(":num_threads=x"), std::invalid_argument);
    char model[] = {'C', 'M', 1, 0, 0, 0};
    EXPECT_THROW(nolk_new_runner(":num_threads=x", model, 6, 1), std::invalid_argument);
}

TEST_F(Nolk, AMissingImplementationIsReported) {
    for (const char* name : {"nolkraw", "num_threads=4", "%s%n"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(nolk_new_runner_builder(name), nullptr);
        const std::string wish = std::string("dlopen 'lib") + name + ".so' failed: ";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), wish + "unknown\n");
        EXPECT_EQ(popError().compare(0, wish.size(), wish), 0);
    }
    // What is not a model goes to the implementation that is named, and the built-in one reads only its own format.
    char bytes[] = "CM";
    for (const auto& [data, size] : std::vector<std::pair<void*, int>>{{nullptr, 100}, {bytes, 2}, {bytes + 1, 2}}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(nolk_new_runner(nullptr, data, size, 1), nullptr);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(popError().compare(0, 23, "dlopen 'lib.so' failed:"), 0);
    }
}

// The plug-ins lie beside libnolk.so, and not on the loader's path.
TEST_F(Nolk, PluginsAreFoundBesideTheLibraryAndGetTheirSettings) {
    char bytes[] = "other format";
    EXPECT_EQ(nolk_new_runner_builder("nolk_test_plugin:a:b=1"), nullptr);
    EXPECT_EQ(nolk_new_runner("nolk_test_plugin:cfg", bytes, 7, 3), nullptr);
    EXPECT_EQ(popError(), "");
    char model[] = {'C', 'M', 1, 0, 0, 0};
    EXPECT_EQ(nolk_new_runner("nolk_test_plugin:m", model, 6, 1), nullptr);  // built through the plug-in's builder
    void* handle = dlopen(PLUGIN_FOLDER "/libnolk_test_plugin.so", RTLD_NOW);
    ASSERT_NE(handle, nullptr);
    const auto calls = reinterpret_cast<const char* (*)()>(dlsym(handle, "plugin_calls"));
    EXPECT_STREQ(calls(), "builder(a:b=1)runner(cfg,7,3)builder(m)");
    dlclose(handle);
}

// One that is made of the library's own parts computes with them, in its own copy.
TEST_F(Nolk, APluginOfTheLibrarysPartsRunsANetwork) {
    nolk::RunnerBuilder* builder = nolk_new_runner_builder("nolk_test_raw_plugin:num_threads=2");
    ASSERT_NE(builder, nullptr);
    float weight[] = {1, 2, 3, 4}, bias[] = {10, 20};
    nolk::TensorX* y = builder->fullConnect(builder->input({1, 2, 1, 1, 1}), {1, 2, 2, 1, 1, true, weight, bias});
    y = builder->abs(y);  // of the plug-in's own, which changes the sign
    nolk::Runner* runner = builder->build(&y, 1);
    builder->destroy();
    ASSERT_NE(runner, nullptr);
    float x[] = {5, 6}, result[2] = {};
    nolk::Tensor in{{1, 2, 1, 1, 1}, x}, out{{1, 2, 1, 1, 1}, result};
    EXPECT_TRUE(runner->run(&in, 1, &out, 1));
    EXPECT_EQ(result[0], -27);
    EXPECT_EQ(result[1], -59);
    runner->destroy();

    int count = 2;
    runner = nolk_new_runner("nolk_test_raw_plugin", &count, sizeof count, 1);
    ASSERT_NE(runner, nullptr);
    EXPECT_TRUE(runner->run(&in, 1, &out, 1));
    EXPECT_EQ(result[1], -6);
    runner->destroy();
    EXPECT_EQ(nolk_new_runner("nolk_test_raw_plugin", &count, 3, 1), nullptr);
    EXPECT_EQ(popError(), "not an int");  // the error channel is the library's
}

// What the loader finds is called, also where it is this library's own function: directly, or through a plug-in that
// links it. Each call has one name less in front, so the last one fails.
TEST_F(Nolk, OurOwnFunctionGoesOnWithTheRest) {
    char bytes[] = "other format";
    for (const char* const name : {"nolk:foo", "nolk:nolk:foo", "nolk_test_half_plugin:foo:bar"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(nolk_new_runner(name, bytes, 7, 3), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "dlopen 'libfoo.so' failed: unknown\n");
        EXPECT_EQ(popError().compare(0, 26, "dlopen 'libfoo.so' failed:"), 0);
        EXPECT_EQ(popError(), "");
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(nolk_new_runner_builder("nolk:foo"), nullptr);
    const std::string text = "dlsym 'nolk_new_runner_builder_impl' of 'libnolk.so' failed: ";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), text + "unknown\n");
    EXPECT_EQ(popError().compare(0, text.size(), text), 0);
}

TEST_F(Nolk, WrappingAsksForARunner) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(nolk_wrap_batch_runner(nullptr, 2), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "invalid runner or batch_size\n");
    EXPECT_EQ(popError(), "invalid runner or batch_size");
}

}  // namespace
