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

// "/tmp/" + "tiff" -> "/tmp.tiff". The extension is appended as given, a
// "/" in it included, as the method is documented to do. Gives no string
// (false) for an empty path or the root, which have no name to extend; an
// empty extension changes nothing but the slashes.
bool AppendingPathExtension(const std::string& path, const std::string& ext, std::string& out);

// The home folder of a user ("" for the current one); false when unknown.
using HomeResolver = bool (*)(const std::string& user, std::string& home);

// The home folders of this process's users: HOME (else the password
// database) for the current user, the password database for others.
bool ProcessHomes(const std::string& user, std::string& home);

// "~" or "~user" at the start replaced by that user's home; unchanged when
// the home is not known.
std::string ExpandingTildeInPath(const std::string& path, HomeResolver home_of);

// Lexical standard form: a leading tilde expanded, slashes collapsed, "."
// components removed where a "/" stands before them (a lone "." or a
// leading "./" stays), ".." resolved against the preceding component in
// absolute paths (never above the root), trailing "/" removed. Relative
// paths keep their "..".
std::string StandardizingPath(const std::string& path, HomeResolver home_of = &ProcessHomes);

} // namespace foundation
} // namespace platform

#endif // ORU_PLATFORM_FOUNDATION_PATH_RULES_H
