// The boot loader's block: its checksum beside zlib's crc32, loading and saving beside the same
// system calls with zlib, and finding the last of 60 keys.
#include <fcntl.h>
#include <tq/redboot.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>
#include <string>

#include "support.h"

namespace {

constexpr size_t kBlockSize = sizeof(redboot_config);
constexpr char kFlash[] = "/dev/mtdblock1";
constexpr int kEntries = 60;

uint32_t checksum(const unsigned char* block) {
    uint32_t crc = 0;
    for (size_t i = 0; i < kBlockSize - 4; i++)
        crc = crc32_table[(crc ^ block[i]) & 0xFF] ^ crc >> 8;
    return crc;
}

uint32_t checksum_by_zlib(const unsigned char* block) {
    return ~static_cast<uint32_t>(crc32(0xFFFFFFFF, block, kBlockSize - 4));
}

std::string key_of(int number) {
    return "key_number_" + std::to_string(number);
}

// A block of 60 entries in flash, and loaded.
void load_entries() {
    std::string block(kBlockSize, '\0');
    const uint32_t words[] = {kBlockSize, 0x0BADFACE, 0xDEADDEAD};
    memcpy(block.data(), words, 8);
    memcpy(&block[4088], &words[2], 4);
    const uint32_t crc = checksum(reinterpret_cast<const unsigned char*>(block.data()));
    memcpy(&block[4092], &crc, 4);
    tq_bench::write_file(kFlash, block);
    redboot_load_config();
    for (int i = 0; i < kEntries; i++) {
        const std::string key = key_of(i);
        const redboot_config_option option = {key.c_str(), "", nullptr, 1, REDBOOT_CONFIG_INT, 1};
        redboot_add_config(&option);
    }
    redboot_write_config();
}

void checksum_of_block(benchmark::State& state) {
    load_entries();
    for (auto _ : state)
        benchmark::DoNotOptimize(checksum(redboot_config));
}

void checksum_of_block_by_zlib(benchmark::State& state) {
    load_entries();
    for (auto _ : state)
        benchmark::DoNotOptimize(checksum_by_zlib(redboot_config));
}

void load(benchmark::State& state) {
    load_entries();
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(redboot_load_config());
}

void load_by_hand(benchmark::State& state) {
    load_entries();
    unsigned char block[kBlockSize];
    for (auto _ : state) {
        const int fd = open(kFlash, O_RDWR | O_CLOEXEC);
        benchmark::DoNotOptimize(read(fd, block, sizeof(block)));
        close(fd);
        benchmark::DoNotOptimize(checksum_by_zlib(block));
    }
}

void save(benchmark::State& state) {
    load_entries();
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(redboot_write_config());
}

void save_by_hand(benchmark::State& state) {
    load_entries();
    for (auto _ : state) {
        benchmark::DoNotOptimize(checksum_by_zlib(redboot_config));
        const int fd = open(kFlash, O_RDWR | O_DSYNC | O_CLOEXEC);
        benchmark::DoNotOptimize(write(fd, redboot_config, kBlockSize));
        close(fd);
    }
}

void find_last_of_60_keys(benchmark::State& state) {
    load_entries();
    const std::string key = key_of(kEntries - 1);
    uint32_t value = 0;
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(redboot_get_config(key.c_str(), &value, REDBOOT_CONFIG_INT));
}

// The same walk with strcmp, without a bound.
void find_last_of_60_keys_by_hand(benchmark::State& state) {
    load_entries();
    const std::string key = key_of(kEntries - 1);
    for (auto _ : state) {
        const unsigned char* entry = redboot_config + 8;
        while (strcmp(reinterpret_cast<const char*>(entry + 4), key.c_str()) != 0)
            entry += 4 + entry[1] + entry[3] + 4;
        benchmark::DoNotOptimize(entry);
    }
}

BENCHMARK(checksum_of_block);
BENCHMARK(checksum_of_block_by_zlib);
BENCHMARK(load);
BENCHMARK(load_by_hand);
BENCHMARK(save);
BENCHMARK(save_by_hand);
BENCHMARK(find_last_of_60_keys);
BENCHMARK(find_last_of_60_keys_by_hand);

}  // namespace

BENCHMARK_MAIN();
