#include "RemoteInput/common/linux/XLibLoader.h"

#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/FakeStack.h"

using testing::Each;
using testing::ElementsAre;

TEST(XLibLoaderTest, TheFirstAnswerStandsAndEveryLibraryIsUnloadedOnce)
{
    int handles[8];
    int functions[8];
    size_t loads = 0;
    size_t finds = 0;
    std::vector<void*> unloaded;
    fakestack::setLoader({
        [&](const std::wstring& name) -> void*
        { return name == L"absent.so" && loads == 4 ? nullptr : &handles[loads++]; },
        [&](void* library, const std::string& name) -> void*
        {
            EXPECT_EQ(library, &handles[0]);
            return name == "absent" ? nullptr : &functions[finds++];
        },
        [&](void* library) { unloaded.push_back(library); },
    });
    {
        XLibLoader loader;
        EXPECT_EQ(loader.getFunction(L"a.so", "f"), &functions[0]);
        EXPECT_EQ(loader.getFunction(L"a.so", "f"), &functions[0]);
        EXPECT_EQ(loader.getFunction(L"a.so", "absent"), nullptr);
        EXPECT_EQ(loader.getFunction(L"a.so", "g"), &functions[2]);
        EXPECT_EQ(loads, 4u); // asked every time
        EXPECT_EQ(loader.getFunction(L"absent.so", "f"), nullptr);
        ++loads;
        EXPECT_EQ(loader.getFunction(L"absent.so", "f"), nullptr); // although it is there now
    }
    EXPECT_THAT(unloaded, ElementsAre(&handles[0]));

    {
        XLibLoader shared;
        std::vector<void*> found(4);
        std::vector<std::thread> threads;
        loads = 0;
        for (void*& result : found)
            threads.emplace_back([&] { result = shared.getFunction(L"a.so", "f"); });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_THAT(found, Each(found.front()));
    }
    fakestack::setLoader({});
}
