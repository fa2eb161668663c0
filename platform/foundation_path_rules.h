// The documented behaviour of the Foundation path methods, as plain string
// functions, for systems without Foundation. Each takes and gives UTF-8.
//
// Common to all of them: runs of "/" count as one and a trailing "/" is
// dropped (the root "/" stays "/").
#ifndef ORU_PLATFORM_FOUNDATION_PATH_RULES_H
#define ORU_PLATFORM_FOUNDATION_PATH_RULES_H

#include <string>

namespace platform {
namespace foundation {

// The path with runs of "/" collapsed and a trailing "/" removed.
std::string CollapseSlashes(const std::string& path);

// "/tmp/scratch.tiff" -> "scratch.tiff"; "/tmp/" -> "tmp"; "/" -> "/".
std::string LastPathComponent(const std::string& path);

// "/tmp/scratch.tiff" -> "/tmp"; "/tmp" -> "/"; "scratch.tiff" -> "".
std::string DeletingLastPathComponent(const std::string& path);

// "/tmp" + "scratch.tiff" -> "/tmp/scratch.tiff"; "" + "x" -> "x".
std::string AppendingPathComponent(const std::string& path, const std::string& component);

// "/tmp/scratch.tiff" -> "/tmp/scratch"; ".tiff" -> ".tiff"; "/" -> "/".
std::string DeletingPathExtension(const std::string& path);

// "/tmp/" + "tiff" -> "/tmp.tiff". Gives no string (false) for an empty path,
// the root, or an extension that holds a "/"; an empty extension changes
// nothing but the slashes.
bool AppendingPathExtension(const std::string& path, const std::string& ext, std::string& out);

// Lexical standard form: slashes collapsed, "." components removed, ".."
// resolved against the preceding component in absolute paths (never above
// the root), trailing "/" removed. Relative paths keep their "..".
std::string StandardizingPath(const std::string& path);

} // namespace foundation
} // namespace platform

#endif // ORU_PLATFORM_FOUNDATION_PATH_RULES_H
