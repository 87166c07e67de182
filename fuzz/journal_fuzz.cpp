// Any bytes as a store file with any bytes as its journal, whose checksum is right: whatever the journal asks for is done or
// refused as a whole, and whoever opens the file once more finds the same.
#include <certkern/keykern.h>
#include <certkern/store.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include "platform/owner.h"
#include "store/journal.h"

namespace {

using Bytes = std::span<const uint8_t>;
using Store = certkern::Owner<HCERTSTORE, CertCloseStore>;

void Require(bool condition) {
  if (!condition) std::abort();
}

struct Directory {
  std::string path = (std::filesystem::temp_directory_path() / "certkern-fuzz-XXXXXX").string();

  Directory() { Require(mkdtemp(path.data())); }
  ~Directory() { std::filesystem::remove_all(path); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
};

void PutWord(std::string& out, uint64_t word) {
  for (int shift = 0; shift < 64; shift += 8) out += static_cast<char>(word >> shift);
}

std::string Journal(bool pieces, const std::string& body) {
  const uint64_t sum = certkern::Checksum({reinterpret_cast<const uint8_t*>(body.data()), body.size()});
  std::string journal = pieces ? "CKJOURN2" : "CKJOURN1";
  PutWord(journal, body.size());
  PutWord(journal, sum);
  return journal + body;
}

void Write(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
  std::filesystem::permissions(path, std::filesystem::perms(0600));
}

// The number of the file and the checksum of its rest can't be guessed.
void Sign(std::string& body, const std::string& path) {
  if (body.size() < 16) return;
  const certkern::Owner<std::FILE*, std::fclose> file(std::fopen(path.c_str(), "rb"));
  struct stat status;
  Require(file && ::fstat(fileno(file.get()), &status) == 0);
  certkern::FileChange change;
  uint64_t rest = 0;
  if (!certkern::ReadPieces({reinterpret_cast<const uint8_t*>(body.data()), body.size()}, change)) return;
  Require(certkern::ChecksumOfRest(fileno(file.get()), change, rest));
  std::string words;
  PutWord(words, status.st_ino);
  PutWord(words, rest);
  body.replace(0, words.size(), words);
}

Store Open(const std::string& path) {
  return Store(CertOpenStore(
      CERT_STORE_PROV_FILENAME_A, 0, 0,
      CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_ENUM_ARCHIVED_FLAG | CERT_FILE_STORE_COMMIT_ENABLE_FLAG,
      path.c_str()));
}

std::vector<BYTE> Save(const Store& store) {
  CRYPT_DATA_BLOB blob{};
  Require(CertSaveStore(store.get(), 0, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  std::vector<BYTE> image(blob.cbData);
  blob.pbData = image.data();
  Require(CertSaveStore(store.get(), 0, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Directory directory;
  if (size < 2) return 0;
  const Bytes rest(data + 2, size - 2);
  const Bytes content = rest.first(std::min<size_t>(rest.size(), data[1]));
  const Bytes asked = rest.subspan(content.size());
  const bool pieces = data[0] & 1;

  const std::string path = directory.path + "/store";
  Write(path, {content.begin(), content.end()});
  std::string body(asked.begin(), asked.end());
  if (pieces) Sign(body, path);
  Write(certkern::StoreJournal(path).path(), Journal(pieces, body));

  std::vector<BYTE> first;
  if (const Store store = Open(path)) first = Save(store);
  Require(!std::filesystem::exists(certkern::StoreJournal(path).path()));
  const Store again = Open(path);
  Require(static_cast<bool>(again) == !first.empty() && (!again || Save(again) == first));
  return 0;
}
