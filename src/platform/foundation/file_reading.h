#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brenvia {

// Upper bounds of the files the library reads whole; no valid file of the kind comes near them.
inline constexpr size_t kBVMaximumRecipeBytes = size_t{16} << 20;
inline constexpr size_t kBVMaximumCurveFileBytes = size_t{1} << 20;
inline constexpr size_t kBVMaximumTableFileBytes = size_t{256} << 20;
inline constexpr size_t kBVMaximumPictureFileBytes = size_t{2} << 30;

// Whether `path` names a regular file (after symbolic links); `error` says what it is otherwise.
// Folders, devices and pipes are refused, so that no read waits on a pipe or runs forever.
bool BVIsRegularFile(const std::string& path, std::string& error);

// The bytes of the regular file at `path`, at most `limit` of them; nothing, with `error` set
// (the system's reason, "a folder, not a file", "larger than 16 MB", ...), for anything else.
std::optional<std::vector<uint8_t>> BVReadRegularFile(const std::string& path, size_t limit, std::string& error);
std::optional<std::string> BVReadRegularTextFile(const std::string& path, size_t limit, std::string& error);

}  // namespace brenvia
