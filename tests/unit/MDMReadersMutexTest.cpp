#include "MDMReadersMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

TEST(MDMReadersMutex, ReaderKeepsTheWriterOut) {
    MDMReadersMutex sut;
    std::future<void> written;
    {
        const MDMReadersMutex::Reader reader(sut);
        written = std::async(std::launch::async, [&] { const MDMReadersMutex::Writer writer(sut); });
        EXPECT_EQ(written.wait_for(50ms), std::future_status::timeout);
    }
    written.wait();
}

TEST(MDMReadersMutex, WriterKeepsReadersOutOfEveryPlace) {
    MDMReadersMutex sut;
    std::atomic<int> read{0};
    std::vector<std::thread> readers;
    {
        const MDMReadersMutex::Writer writer(sut);
        for (int i = 0; i < 8; ++i)
            readers.emplace_back([&] {
                const MDMReadersMutex::Reader reader(sut);
                ++read;
            });
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(read, 0);
    }
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(read, 8);
}

TEST(MDMReadersMutex, ReadersNeverSeeAHalfMadeChange) {
    MDMReadersMutex sut;
    int first = 0;
    int second = 0;
    std::atomic<int> torn{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                const MDMReadersMutex::Reader reader(sut);
                if (first != second)
                    ++torn;
            }
        });
    for (int round = 0; round < 2000; ++round) {
        const MDMReadersMutex::Writer writer(sut);
        ++first;
        ++second;
    }
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(torn, 0);
}
