// What a tree of files is, to be held against what it was.
#pragma once

#include <map>
#include <string>
#include <vector>

/// Of each entry's path below the root: kind, mode, owner, group and content, not its times.
using TreeDigest = std::map<std::string, std::string>;

/// The digest of the tree at `root` ("" for the whole file system) without the entries at and below
/// `excluded`, whose paths are absolute inside the tree. No link is followed. What cannot be looked
/// at fails the test.
TreeDigest DigestTree(const std::string& root, const std::vector<std::string>& excluded);

/// The paths at which two digests differ, one a line; empty when they are equal.
std::string DifferenceOf(const TreeDigest& before, const TreeDigest& after);
