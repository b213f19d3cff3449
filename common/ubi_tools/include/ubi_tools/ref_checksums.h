// The two reference files that record what each UBI volume should contain.
//
// A file has at most 2047 bytes: a line "MD5 volume" for each volume, and a last line with a Fletcher-32 checksum of
// the lines before it. Both files are replaced as one transaction: every new byte is on the disk before the first old
// name moves, and each step that can fail knows how to undo the steps before it. The old files stay beside the new
// ones, with ".bak" after their names, to be put back if the boot loader cannot be switched.

#pragma once

#include <string>
#include <utility>
#include <vector>

/// Pairs of volume name and MD5, in the order of the file's lines.
using RefChecksumList = std::vector<std::pair<std::string, std::string>>;

/// Replaces `list` by the contents of the first of the two reference files that is sound.
/// \return 0; or the result of readRefFile() for the second file, with `list` empty.
int loadRefChecksums(RefChecksumList* list);

/// Sets the MD5 of `volume`: in its place if the list has the volume, else at the end.
void setRefChecksum(RefChecksumList* list, const std::string& volume, const std::string& md5);

/// Replaces both reference files by `list`; see updateRefFiles().
[[nodiscard]] int storeRefChecksums(const RefChecksumList& list);

/// Puts back what the two reference files held before the last storeRefChecksums(); see restoreRefFiles().
int restoreRefChecksums();

/// Replaces `list` by the contents of the file at `path`.
/// `list` is written on success only.
/// \return 0; EILSEQ: no checksum line in the first 2047 bytes, or a checksum that does not match; or the errno value
///         of a failure to read the file.
[[nodiscard]] int readRefFile(RefChecksumList* list, const std::string& path);

/// Writes `list` to the file at `path` and syncs it. A file whose writing failed is removed.
/// \return 0; ENOBUFS: the file would be longer than 2047 bytes, and nothing was touched; or the errno value of the
///         step that failed.
[[nodiscard]] int writeRefFile(const RefChecksumList& list, const std::string& path);

/// Replaces both files by `list`, or neither: the new contents are on the disk before an old name moves.
/// A power loss between the moves can leave both files under their ".bak" and ".new" names only.
/// \return 0; EINVAL: the paths are equal; or the result of the step that failed, after the steps before it were undone
///         as far as that succeeded.
[[nodiscard]] int updateRefFiles(const RefChecksumList& list, const std::string& path1,
                                 const std::string& path2);

/// Moves both ".bak" files back, each one whatever becomes of the other.
/// \return 0, or the errno value of the rename that failed, the second one's if both did.
int restoreRefFiles(const std::string& path1, const std::string& path2);
