#include <cstring>
#include <string_view>

#include "orn/vesk.h"
#include "orn/vesk/wire/text.h"

namespace {

constexpr std::size_t kMaxPathLength = 100;

}  // namespace

int SetupCertificates(CertificatePaths *paths, const char *dirName, const char *fileName1, const char *fileName2,
                      const char *fileName3) {
  const std::string_view files[] = {vesk::wire::text_of(fileName1), vesk::wire::text_of(fileName2),
                                    vesk::wire::text_of(fileName3)};
  const std::string_view given = vesk::wire::text_of(dirName);

  char directory[kMaxPathLength + 1] = {};
  std::size_t length = given.size();
  given.copy(directory, kMaxPathLength);
  // A directory of 100 characters has no room for the '/' and is refused below when it lacks one.
  if (!given.ends_with('/') && length < kMaxPathLength) directory[length++] = '/';

  if (length > kMaxPathLength) return ERR_CERT_PATH_LENGTH;
  for (const std::string_view file : files) {
    if (length + file.size() > kMaxPathLength) return ERR_CERT_PATH_LENGTH;
  }
  if (directory[length - 1] != '/') return ERR_CERT_DIR_FORM;

  *paths = {};
  for (auto &path : paths->caPath) std::memcpy(path, directory, length);
  for (std::size_t i = 0; i < std::size(files); ++i) files[i].copy(paths->caPath[i + 1] + length, files[i].size());
  return 0;
}
