// What the cases work on, made on first use in a folder of their own and removed at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

constexpr std::size_t tree_files = 20'000;
constexpr std::size_t crowd = 100'000, crowd_matching = 10'000;
constexpr std::size_t big_file_mib = 4'096;
constexpr std::size_t config_entries = 100'000;
constexpr std::size_t followed = 10'000;
constexpr long long followed_sum = 49'995'000;  // of 0 to 9,999

// Below TMPDIR; nothing is there yet.
std::string scratch_path(const std::string &name);
bool exists(const std::string &path);
// What was written so far is on the disk.
void settle_disk();

std::string source_tree();  // 200 folders of 100 files of 0 to 8 KiB
// Files, and the sum of their sizes and names.
std::uint64_t content_of_tree(const std::string &folder);
std::string crowded_folder();  // name00000.txt and on, empty
std::string big_file();        // in memory where there is a file system for that
std::uint32_t big_file_sum();

const std::vector<std::string> &value_names();                             // 10,000
const std::vector<std::pair<std::string, std::string>> &config_content();  // in no order

std::string monitor_file();                  // with one int
constexpr std::size_t monitor_place = 30;    // of that int's value
int value_in_file(const std::string &path);  // of that int
std::string followed_file();                 // with 10,000 ints

}  // namespace bench
