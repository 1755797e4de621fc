#include "compare/content.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "compare/checksum_cache.h"
#include "data/file_identity.h"
#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/formats.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "frame/work_pool.h"

namespace kelvor {

using Clock = std::chrono::steady_clock;

namespace {

// Reads of the checksum route; large enough that the kernel streams the file.
constexpr std::size_t kHashReadSize = 1 << 20;
// Read-ahead limits: files waiting for a worker, and finished digests kept
// for the cascade. Both bound memory to a few hundred KiB of paths.
constexpr std::size_t kMaxQueuedJobs = 512;
constexpr std::size_t kMaxDoneJobs = 4096;
// Prefixes the read-ahead's gate remembers (a few MiB at most).
constexpr std::size_t kMaxGateEntries = 16384;

constexpr const char* kShortRead = "end of file reached early";

const char* AlgorithmName(int mode) {
  switch (mode) {
    case kCompareMD5:
      return "MD5";
    case kCompareSHA1:
      return "SHA1";
    case kCompareSHA256:
      return "SHA256";
    case kCompareSHA384:
      return "SHA384";
    case kCompareSHA512:
      return "SHA512";
    default:
      return nullptr;
  }
}

std::string OpenSslError() {
  unsigned long e = ERR_get_error();
  if (e == 0) return "unknown error";
  char buf[256];
  ERR_error_string_n(e, buf, sizeof buf);
  ERR_clear_error();
  return buf;
}

bool EqualsAsciiNoCase(const std::string& a, const char* b) {
  std::size_t n = std::strlen(b);
  if (a.size() != n) return false;
  for (std::size_t i = 0; i < n; ++i) {
    unsigned char c = static_cast<unsigned char>(a[i]);
    if (c >= 'A' && c <= 'Z') c = static_cast<unsigned char>(c - 'A' + 'a');
    if (c != static_cast<unsigned char>(b[i])) return false;
  }
  return true;
}

std::string NameWithExtension(const FileRecord& r) {
  return r.Extension.empty() ? r.Name : r.Name + "." + r.Extension;
}

// Path for messages: a member of an archive is named by its archive.
std::string DisplayPath(const FileRecord& r, const std::string& fullPath) {
  if (r.ArchiveType == 0) return fullPath;
  return fullPath + " [" + NameWithExtension(r) + "]";
}

}  // namespace

int DigestLength(int mode) {
  switch (mode) {
    case kCompareMD5:
      return 16;
    case kCompareSHA1:
      return 20;
    case kCompareSHA256:
      return 32;
    case kCompareSHA384:
      return 48;
    case kCompareSHA512:
      return 64;
    default:
      return 0;
  }
}

std::string ChecksumName(int mode) {
  switch (mode) {
    case kCompareMD5:
      return "MD5";
    case kCompareSHA1:
      return "SHA1-160";
    case kCompareSHA256:
      return "SHA2-256";
    case kCompareSHA384:
      return "SHA2-384";
    case kCompareSHA512:
      return "SHA2-512";
    default:
      return "";
  }
}

HashRange HashRangeFor(const FileRecord& rec, const std::string& partnerExtension, bool isMP3,
                       bool isJPG, bool isFLAC) {
  HashRange r;
  const std::string& ext = partnerExtension;
  r.useMp3Cuts = isMP3 && EqualsAsciiNoCase(ext, "mp3");
  r.useExifCuts = (isJPG && (EqualsAsciiNoCase(ext, "jpeg") || EqualsAsciiNoCase(ext, "jpg") ||
                             EqualsAsciiNoCase(ext, "cr2"))) ||
                  (isFLAC && EqualsAsciiNoCase(ext, "flac"));
  if (r.useMp3Cuts) {
    r.cutFromStart = rec.MP3CutFromStart;
    r.cutFromEnd = rec.MP3CutFromEnd;
  } else if (r.useExifCuts) {
    r.cutFromStart = rec.ExifCutFromStart;
    r.cutFromEnd = rec.ExifCutFromEnd;
  }
  return r;
}

namespace compare_detail {

// Where the digests of one Hash call came from.
struct HashSource {
  bool digestFromCache = false;
  bool prefixFromCache = false;
  // Only the prefix digest was made: the gate judged the full one not worth
  // making ahead.
  bool prefixOnly = false;
};

// Asked with a range's length and its prefix digest whether the full
// checksum is worth making now (true) or the prefix is enough for the time
// being (false).
using PrefixGate = std::function<bool(std::int64_t rangeLength, const std::string& prefix)>;

// One digest context with its read buffer; one per thread that hashes.
class Hasher {
 public:
  explicit Hasher(int mode, ChecksumCache* cache = nullptr)
      : mode_(mode), digestLength_(DigestLength(mode)), cache_(cache) {
    if (const char* name = AlgorithmName(mode)) md_ = EVP_MD_fetch(nullptr, name, nullptr);
    ctx_ = EVP_MD_CTX_new();
  }
  ~Hasher() {
    EVP_MD_CTX_free(copy_);
    EVP_MD_CTX_free(ctx_);
    EVP_MD_free(md_);
  }
  Hasher(const Hasher&) = delete;
  Hasher& operator=(const Hasher&) = delete;

  // True when the cache holds the digest of the whole range for the file as
  // the walk saw it, so that Hash answers without opening or a stat.
  bool CacheAnswers(const ExpectedFile& expected, const HashRange& range) const {
    const std::optional<ChecksumFileState> state = WalkState(&expected);
    if (!cache_ || !state || !cache_->HasRowsOf(state->device, state->inode)) return false;
    std::int64_t start = 0, length = 0;
    if (state->size <= digestLength_ || !RangeOf(state->size, range, &start, &length) ||
        length < kCacheMinBytes)
      return false;
    ChecksumKey key, prefixKey;
    MakeKeys(*state, range, length, &key, &prefixKey);
    return cache_->Lookup(key).has_value();
  }

  // CreateHashFromFile. `stop` is tested after every block; `progress` gets
  // (bytes done, bytes in range) after every block. With `limit` > 0 only the
  // first `limit` bytes of the range are digested (the prefix digest). With
  // `prefixOut`, the prefix digest of kPrefixDigestBytes is made on the way
  // from the first block (left empty when that fails).
  std::string Hash(const std::string& path, const HashRange& range, const ExpectedFile* expected,
                   const std::function<bool()>& stop,
                   const std::function<void(std::int64_t, std::int64_t)>& progress,
                   std::string* error, std::int64_t limit = 0, std::string* prefixOut = nullptr,
                   HashSource* source = nullptr, const PrefixGate* gate = nullptr) {
    error->clear();
    if (prefixOut) prefixOut->clear();
    HashSource localSource;
    if (!source) source = &localSource;
    *source = HashSource{};
    if (stop && stop()) return {};
    // A digest the cache holds for the file as it is now is taken without
    // opening it: the walk's identity and size are checked on the state, and
    // rows were only stored for states older than their ctime tick.
    ChecksumFileState peeked;
    bool peekedMissed = false;
    // The walk's identity tells whether the cache knows the file at all; a
    // file it does not know (a first search) is not asked about.
    const bool known = expected && (expected->device != 0 || expected->inode != 0)
                           ? cache_ && cache_->HasRowsOf(expected->device, expected->inode)
                           : cache_ && cache_->Usable();
    if (known) {
      if (auto state =
              WalkState(expected) ? WalkState(expected) : PeekChecksumFileState(path, expected)) {
        peeked = *state;
        std::int64_t start = 0, length = 0;
        if (peeked.size > digestLength_ && RangeOf(peeked.size, range, &start, &length) &&
            length >= kCacheMinBytes) {
          std::string digest;
          if (LookUp(peeked, range, length, limit, prefixOut, source, &digest)) return digest;
          peekedMissed = true;
        }
      }
    }
    ReadFile file;
    std::string err;
    if (!file.Open(path, true, &err, expected)) {
      *error = "CreateFileWide: " + err;
      return {};
    }
    const std::int64_t size = file.Size(&err);
    if (size < 0) {
      *error = "CreateFileWide: " + err;
      return {};
    }
    if (size == 0) {
      *error = "File size 0";
      return {};
    }
    // A file no longer than the digest is its own checksum; cuts do not apply.
    if (size <= digestLength_) {
      std::string bytes(static_cast<std::size_t>(size), '\0');
      std::int64_t got = file.ReadAt(bytes.data(), bytes.size(), 0, &err);
      if (got < 0) {
        *error = "ReadFile: " + err;
        return {};
      }
      if (got < size) {
        *error = std::string("ReadFile: ") + kShortRead;
        return {};
      }
      return bytes;
    }
    if (!md_ || !ctx_) {
      *error = "CryptCreateHash: " + OpenSslError();
      return {};
    }

    std::int64_t start = 0, length = 0;
    if (!RangeOf(size, range, &start, &length)) {
      *error = "File to small: " + std::to_string(length) + " (" + std::to_string(start) + ")";
      return {};
    }
    const std::int64_t rangeLength = length;
    if (limit > 0) length = std::min(length, limit);

    // The cache knows the file by the state its descriptor has now, taken
    // before any byte is read: a write after this point moves ctime and so
    // cannot be stored under this state for long (see minStateAge).
    ChecksumKey key, prefixKey;
    const bool cached = cache_ && rangeLength >= kCacheMinBytes && TakeState(file, &key.file);
    if (cached) {
      MakeKeys(key.file, range, rangeLength, &key, &prefixKey);
      std::string digest;
      if (!(peekedMissed && peeked.SameFile(key.file)) &&
          LookUp(key.file, range, rangeLength, limit, prefixOut, source, &digest))
        return digest;
    }
    if (EVP_DigestInit_ex(ctx_, md_, nullptr) != 1) {
      *error = "CryptCreateHash: " + OpenSslError();
      return {};
    }
    // With a gate the first read is the prefix alone, and the rest of the
    // range is read only when the gate lets it.
    const bool gated = gate && prefixOut && limit == 0 && length > kPrefixDigestBytes;
    if (!gated) file.Sequential(start, length);
    if (buf_.empty()) buf_.resize(kHashReadSize);

    std::int64_t offset = start, done = 0;
    while (done < length) {
      std::size_t n = static_cast<std::size_t>(std::min<std::int64_t>(
          gated && done == 0 ? kPrefixDigestBytes : static_cast<std::int64_t>(kHashReadSize),
          length - done));
      // Bytes past the size the file had when opened are fed as zeros (the
      // one extra byte of the Exif rule). A file that shrank meanwhile is an
      // error rather than a different digest.
      std::int64_t avail = std::clamp<std::int64_t>(size - offset, 0, static_cast<std::int64_t>(n));
      std::int64_t got =
          avail > 0 ? file.ReadAt(buf_.data(), static_cast<std::size_t>(avail), offset, &err) : 0;
      if (got < 0) {
        *error = "ReadFile2: " + err;
        return {};
      }
      if (got < avail) {
        *error = std::string("ReadFile2: ") + kShortRead;
        return {};
      }
      std::memset(buf_.data() + avail, 0, n - static_cast<std::size_t>(avail));
      std::size_t fed = 0;
      if (prefixOut && done == 0 && !source->prefixFromCache) {
        // The prefix digest is the digest of the range's first bytes: the
        // running context, fed those bytes, is finished on a copy, so that
        // they are hashed once for both digests.
        fed = std::min<std::size_t>(n, static_cast<std::size_t>(kPrefixDigestBytes));
        if (EVP_DigestUpdate(ctx_, buf_.data(), fed) != 1) {
          *error = "CryptBinHashData: " + OpenSslError();
          return {};
        }
        if (!FinishCopy(prefixOut)) prefixOut->clear();
      }
      if (n > fed && EVP_DigestUpdate(ctx_, buf_.data() + fed, n - fed) != 1) {
        *error = "CryptBinHashData: " + OpenSslError();
        return {};
      }
      if (gated && done == 0) {
        if (!prefixOut->empty() && !(*gate)(length, *prefixOut)) {
          if (cached && !source->prefixFromCache && prefixKey.span == ChecksumSpan::kPrefix)
            cache_->Store(prefixKey, *prefixOut);
          source->prefixOnly = true;
          return {};
        }
        file.Sequential(start, length);
      }
      offset += static_cast<std::int64_t>(n);
      done += static_cast<std::int64_t>(n);
      if (progress) progress(done, length);
      if (stop && stop()) return {};
    }
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int mdLen = 0;
    if (EVP_DigestFinal_ex(ctx_, md, &mdLen) != 1) {
      *error = "CryptGetHashParam: " + OpenSslError();
      return {};
    }
    std::string digest(reinterpret_cast<const char*>(md), mdLen);
    if (cached) {
      cache_->Store(limit > 0 ? prefixKey : key, digest);
      if (prefixOut && !prefixOut->empty() && prefixKey.span == ChecksumSpan::kPrefix &&
          !source->prefixFromCache)
        cache_->Store(prefixKey, *prefixOut);
    }
    return digest;
  }

  // The digest of a member of `size` bytes that `produce` hands to the sink
  // it is given, in order, answering false when it could not (it reports
  // that itself). The same range rules as for a file, so that a member and
  // a file with the same bytes get the same digest; no cache, as a member
  // has no identity of its own. Empty with *error when the bytes do not
  // fit the size or the digest fails; empty without one when `produce`
  // gave up.
  using ByteSink = std::function<bool(const char*, std::size_t)>;
  std::string HashStream(std::int64_t size, const HashRange& range,
                         const std::function<bool(const ByteSink&)>& produce, std::string* error) {
    error->clear();
    if (size <= 0) {
      *error = "File size 0";
      return {};
    }
    // A member no longer than the digest is its own checksum.
    const bool whole = size <= digestLength_;
    std::int64_t start = 0, length = size;
    if (!whole) {
      if (!md_ || !ctx_) {
        *error = "CryptCreateHash: " + OpenSslError();
        return {};
      }
      if (!RangeOf(size, range, &start, &length)) {
        *error = "File to small: " + std::to_string(length) + " (" + std::to_string(start) + ")";
        return {};
      }
      if (EVP_DigestInit_ex(ctx_, md_, nullptr) != 1) {
        *error = "CryptCreateHash: " + OpenSslError();
        return {};
      }
    }
    const std::int64_t end = start + length;
    std::string bytes;
    std::int64_t seen = 0;
    bool digestFailed = false;
    const bool produced = produce([&](const char* data, std::size_t n) {
      const std::int64_t from = std::max(seen, start);
      const std::int64_t to = std::min(seen + static_cast<std::int64_t>(n), std::min(end, size));
      seen += static_cast<std::int64_t>(n);
      if (seen > size) return false;  // more than the member said it holds
      if (to <= from) return true;
      const char* p = data + (from - (seen - static_cast<std::int64_t>(n)));
      const std::size_t k = static_cast<std::size_t>(to - from);
      if (whole) {
        bytes.append(p, k);
        return true;
      }
      if (EVP_DigestUpdate(ctx_, p, k) == 1) return true;
      digestFailed = true;
      return false;
    });
    if (digestFailed) {
      *error = "CryptBinHashData: " + OpenSslError();
      return {};
    }
    if (!produced) {
      if (seen > size) *error = "ReadFile2: " + std::to_string(seen) + " > " + std::to_string(size);
      return {};
    }
    if (seen < size) {
      *error = std::string("ReadFile2: ") + kShortRead;
      return {};
    }
    if (whole) return bytes;
    // The part of the range past the end is fed as zeros (the one extra
    // byte of the Exif rule), as for a file.
    if (end > size) {
      const std::string zeros(static_cast<std::size_t>(end - std::max(size, start)), '\0');
      if (EVP_DigestUpdate(ctx_, zeros.data(), zeros.size()) != 1) {
        *error = "CryptBinHashData: " + OpenSslError();
        return {};
      }
    }
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int mdLen = 0;
    if (EVP_DigestFinal_ex(ctx_, md, &mdLen) != 1) {
      *error = "CryptGetHashParam: " + OpenSslError();
      return {};
    }
    return std::string(reinterpret_cast<const char*>(md), mdLen);
  }

 private:
  // The compared range of a file of `size` bytes under the cut rules; false
  // when nothing is left of it (*start and *length say what was worked out).
  static bool RangeOf(std::int64_t size, const HashRange& range, std::int64_t* start,
                      std::int64_t* length) {
    *start = 0;
    *length = size;
    if (range.useMp3Cuts) {
      *start = range.cutFromStart;
      *length = size - range.cutFromEnd - range.cutFromStart;
    } else if (range.useExifCuts) {
      *start = range.cutFromStart;
      // Without a measured start the range reaches one byte past the part
      // that the side-by-side route compares; checksums made so must stay
      // comparable with each other, so the rule is kept as it is.
      *length =
          *start != 0 ? size - range.cutFromEnd - range.cutFromStart : size - range.cutFromEnd + 1;
    }
    return *length > 0 && *start >= 0;
  }

  // The cache keys of the whole range and of its prefix. A range no longer
  // than the prefix is its own prefix: both digests are one row.
  void MakeKeys(const ChecksumFileState& state, const HashRange& range, std::int64_t rangeLength,
                ChecksumKey* key, ChecksumKey* prefixKey) const {
    key->file = state;
    key->mode = mode_;
    key->range = range;
    key->span = ChecksumSpan::kWholeRange;
    key->prefixBytes = 0;
    *prefixKey = *key;
    if (rangeLength > kPrefixDigestBytes) {
      prefixKey->span = ChecksumSpan::kPrefix;
      prefixKey->prefixBytes = static_cast<std::uint32_t>(kPrefixDigestBytes);
    }
  }

  // The digest Hash would make (the prefix with `limit`, else the whole range
  // and, with prefixOut, its prefix when the cache has it) from the cache.
  bool LookUp(const ChecksumFileState& state, const HashRange& range, std::int64_t rangeLength,
              std::int64_t limit, std::string* prefixOut, HashSource* source, std::string* digest) {
    ChecksumKey key, prefixKey;
    MakeKeys(state, range, rangeLength, &key, &prefixKey);
    if (limit > 0) {
      auto hit = cache_->Lookup(prefixKey);
      if (!hit) return false;
      source->digestFromCache = true;
      *digest = std::move(*hit);
      return true;
    }
    auto hit = cache_->Lookup(key);
    if (!hit) {
      // A prefix digest stored alone (the cascade made only the prefix last
      // time) is taken as a prefix made on its own would be; the whole range
      // is hashed all the same.
      if (prefixOut && prefixKey.span == ChecksumSpan::kPrefix && !source->prefixFromCache) {
        if (auto prefixHit = cache_->Lookup(prefixKey)) {
          *prefixOut = std::move(*prefixHit);
          source->prefixFromCache = true;
        }
      }
      return false;
    }
    if (prefixOut) {
      if (auto prefixHit = cache_->Lookup(prefixKey)) {
        *prefixOut = std::move(*prefixHit);
        source->prefixFromCache = true;
      }
    }
    source->digestFromCache = true;
    *digest = std::move(*hit);
    return true;
  }

  // The digest of what the running context has been fed so far, made on a
  // copy of it; the context itself goes on.
  bool FinishCopy(std::string* out) {
    if (!copy_) copy_ = EVP_MD_CTX_new();
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int mdLen = 0;
    if (!copy_ || EVP_MD_CTX_copy_ex(copy_, ctx_) != 1 ||
        EVP_DigestFinal_ex(copy_, md, &mdLen) != 1)
      return false;
    out->assign(reinterpret_cast<const char*>(md), mdLen);
    return true;
  }

  // The file's state as the walk's stat saw it, when the walk gave all of
  // it: the cache is asked by that state without a stat of its own. A hit is
  // the digest of the bytes the file had in that state, which is what the
  // search saw of it; a file changed before the walk has other times and
  // misses.
  static std::optional<ChecksumFileState> WalkState(const ExpectedFile* expected) {
    if (!expected || expected->ctimeNs == 0 || expected->size < 0 ||
        (expected->device == 0 && expected->inode == 0))
      return std::nullopt;
    ChecksumFileState s;
    s.device = expected->device;
    s.inode = expected->inode;
    s.size = expected->size;
    s.mtimeNs = expected->mtimeNs;
    s.ctimeNs = expected->ctimeNs;
    return s;  // takenAtNs 0: a state never stored
  }

  static bool TakeState(const ReadFile& file, ChecksumFileState* state) {
    *state = ChecksumFileStateFrom(file.Stat());
    return true;
  }

  int mode_;
  int digestLength_;
  ChecksumCache* cache_;
  EVP_MD* md_ = nullptr;
  EVP_MD_CTX* ctx_ = nullptr;
  EVP_MD_CTX* copy_ = nullptr;  // for FinishCopy, made on first use
  std::vector<unsigned char> buf_;
};

}  // namespace compare_detail

bool ChecksumAvailable(int mode, std::string* error) {
  if (mode == kCompareSideBySide) return true;
  const char* name = AlgorithmName(mode);
  if (!name) {
    if (error) *error = "unknown checksum method " + std::to_string(mode);
    return false;
  }
  EVP_MD* md = EVP_MD_fetch(nullptr, name, nullptr);
  EVP_MD_CTX* ctx = md ? EVP_MD_CTX_new() : nullptr;
  bool ok = md && ctx && EVP_DigestInit_ex(ctx, md, nullptr) == 1;
  if (!ok && error) *error = std::string(name) + ": " + OpenSslError();
  EVP_MD_CTX_free(ctx);
  EVP_MD_free(md);
  return ok;
}

ExpectedFile WalkExpectation(const FileRecord& rec) {
  ExpectedFile e;
  if (rec.ArchiveType != 0) return e;
  e.size = rec.SIZE;
  e.device = rec.WalkDevice;
  e.inode = rec.WalkInode;
  e.mtimeNs = rec.WalkMtimeNs;
  e.ctimeNs = rec.WalkCtimeNs;
  return e;
}

std::string CreateHashFromFile(const std::string& path, int mode, const HashRange& range,
                               const RunState* run, std::string* errorText,
                               const ExpectedFile* expected) {
  std::string local;
  std::string* err = errorText ? errorText : &local;
  if (!AlgorithmName(mode)) {
    *err = "CryptCreateHash: unknown checksum method";
    return {};
  }
  compare_detail::Hasher hasher(mode);
  std::function<bool()> stop;
  if (run) stop = [run] { return run->StopRequested(); };
  return hasher.Hash(path, range, expected, stop, nullptr, err);
}

namespace compare_detail {

// What a file is read ahead for: its range under the cut rules and what the
// walk saw of it. A digest made for another request is not used.
struct AheadRequest {
  HashRange range;
  ExpectedFile expected;
  bool operator==(const AheadRequest&) const = default;
};

// A digest made ahead: the checksum (or the failure), the prefix digest
// made from its first block, and where both came from.
struct AheadDigest {
  std::string digest, error, prefix;
  HashSource source;
};

// The read-ahead of the checksum route: files the cascade is expected to
// compare are hashed on the worker pool, keyed by full path. The cascade
// takes a finished digest, waits for one in progress, or takes a file back
// that has not started and hashes it itself (AheadTable). Each worker has a
// hasher of its own (digest context and read buffer), made on first use by
// that worker only.
class ReadAhead {
 public:
  ReadAhead(int mode, const RunState& run, ChecksumCache* cache, WorkPool& pool)
      : hashers_(pool.Threads()),
        table_(
            pool,
            [this, mode, &run, cache, faults = FileSystemFaults::Current()](
                const std::string& path, const AheadRequest& request,
                int worker) -> std::optional<AheadDigest> {
              // Only workers compute here; the cascade hashes with its own hasher.
              if (worker < 0) return std::nullopt;
              // Workers read for the thread that made the table: they see the
              // file-system faults a test has put in place there.
              FileSystemFaults::Scope scope(faults);
              std::unique_ptr<Hasher>& hasher = hashers_[static_cast<std::size_t>(worker)];
              if (!hasher) hasher = std::make_unique<Hasher>(mode, cache);
              AheadDigest out;
              const PrefixGate gate = [this, &path](std::int64_t length,
                                                    const std::string& prefix) {
                return FullWanted(path, length, prefix);
              };
              out.digest = hasher->Hash(
                  path, request.range, &request.expected,
                  [this, &run] { return run.StopRequested() || table_.Closing(); }, nullptr,
                  &out.error, 0, &out.prefix, &out.source, &gate);
              if (out.digest.empty() && out.error.empty() && !out.source.prefixOnly)
                return std::nullopt;  // stopped
              return out;
            },
            kMaxQueuedJobs, kMaxDoneJobs) {}

  // The gate of the workers: a file whose prefix digest no other file of its
  // length has shown yet is left at its prefix, as the cascade will most
  // likely tell it apart by that alone. The second file with the prefix
  // makes its full checksum, and the first is made again in full. Whichever
  // digests the cascade then asks for and finds missing it makes itself, so
  // the gate changes when a digest is made, never which ones are used.
  bool FullWanted(const std::string& path, std::int64_t length, const std::string& prefix) {
    GateKey key{length, 0};
    std::memcpy(&key.prefix, prefix.data(), std::min(prefix.size(), sizeof key.prefix));
    std::string first;
    {
      std::lock_guard<std::mutex> lock(gateMutex_);
      // Bounded: a file and the representative it will meet are read ahead
      // together, so forgetting old prefixes loses little, and what it
      // loses the cascade makes itself.
      if (gate_.size() >= kMaxGateEntries && !gate_.count(key)) gate_.clear();
      auto [it, inserted] = gate_.try_emplace(key);
      if (inserted) {
        it->second.first = path;
        return false;
      }
      if (it->second.wanted) return true;
      if (it->second.first == path) return false;
      it->second.wanted = true;
      first.swap(it->second.first);
    }
    table_.Redo(first);
    return true;
  }

  void Add(const std::string& path, const HashRange& range, const ExpectedFile& expected) {
    table_.Ahead(path, AheadRequest{range, expected});
  }

  // True when a usable result was taken (*digest, or *error for a failure).
  // False: nothing usable, the caller hashes the file itself. A stop request
  // ends the wait for a file in progress.
  bool Take(const std::string& path, const HashRange& range, const ExpectedFile& expected,
            std::string* digest, std::string* error, bool* fromCache) {
    std::optional<AheadDigest> r = table_.TakeAhead(path, AheadRequest{range, expected});
    if (!r || r->source.prefixOnly) return false;
    *digest = std::move(r->digest);
    *error = std::move(r->error);
    *fromCache = r->source.digestFromCache;
    return true;
  }

  // The prefix digest of a finished file, which stays for a later Take.
  // False when it is not finished, failed, or was made for another range.
  bool PeekPrefix(const std::string& path, const HashRange& range, const ExpectedFile& expected,
                  std::string* prefix, bool* fromCache) {
    bool usable = false;
    table_.Peek(path, AheadRequest{range, expected}, [&](const AheadDigest& d) {
      if (!d.error.empty() || d.prefix.empty()) return;
      *prefix = d.prefix;
      *fromCache = d.source.prefixFromCache;
      usable = true;
    });
    return usable;
  }

 private:
  // Declared before the table: the table's destructor waits for running
  // workers, which use these.
  std::vector<std::unique_ptr<Hasher>> hashers_;
  // The gate's prefixes seen, by range length and the first bytes of the
  // prefix digest (two prefixes alike there at worst cost a checksum made
  // ahead in vain).
  struct GateKey {
    std::int64_t length;
    std::uint64_t prefix;
    bool operator==(const GateKey&) const = default;
  };
  struct GateKeyHash {
    std::size_t operator()(const GateKey& k) const {
      return static_cast<std::size_t>(
          k.prefix ^ (static_cast<std::uint64_t>(k.length) * 0x9E3779B97F4A7C15ULL));
    }
  };
  struct GateEntry {
    std::string first;  // the file left at its prefix, until a second one comes
    bool wanted = false;
  };
  std::mutex gateMutex_;
  std::unordered_map<GateKey, GateEntry, GateKeyHash> gate_;
  AheadTable<std::string, AheadRequest, AheadDigest> table_;
};

}  // namespace compare_detail

void MendCompareBuffers(std::array<std::int64_t, 4>& buffers) {
  static constexpr std::int64_t kRepair[4] = {50000, 500000, 50000, 100000};
  for (int i = 0; i < 4; ++i)
    if (buffers[i] <= 0) buffers[i] = kRepair[i];
  if (buffers[0] > buffers[1]) buffers[0] = buffers[1];
  if (buffers[2] > buffers[1]) buffers[2] = buffers[1];
}

ContentComparer::ContentComparer(const ContentCompareOptions& options, const TextCatalog& texts,
                                 Logger& log, RunState& run, ProgressSink& progress)
    : opt_(options), texts_(texts), log_(log), run_(run), progress_(progress) {
  // Mend buffer sizes the way the setup window does, so that no loop below
  // can run with a read size of 0.
  MendCompareBuffers(opt_.compareBuffer);
  if (opt_.compareFileEndFirst < 0) opt_.compareFileEndFirst = 0;
  if (opt_.mode != kCompareSideBySide || opt_.percent <= 0 || opt_.percent > 100)
    opt_.percent = 100;
  if (opt_.mode != kCompareSideBySide)
    hasher_ = std::make_unique<compare_detail::Hasher>(opt_.mode);
}

ContentComparer::~ContentComparer() = default;

void ContentComparer::SetChecksumCache(ChecksumCache* cache) {
  if (prefetch_ || opt_.mode == kCompareSideBySide) return;  // only before the first digest
  cache_ = cache;
  hasher_ = std::make_unique<compare_detail::Hasher>(opt_.mode, cache_);
}

void ContentComparer::TakeCacheMessages() {
  if (!cache_) return;
  for (const std::string& m : cache_->TakeMessages()) log_.LogProtokoll(m, true);
}

void ContentComparer::Prefetch(const std::string& fullPath, const FileRecord& rec) {
  if (opt_.mode == kCompareSideBySide || rec.ArchiveType != 0 || rec.HashCreated[0] ||
      rec.HaveErrorMessage || fullPath.empty())
    return;
  // The cut rules the cascade applies when the partner has this file's own
  // extension, which is the usual case; a different rule at comparison time
  // discards the digest and hashes again.
  const bool mp3 = opt_.ignoreMP3Tags && EqualsAsciiNoCase(rec.Extension, "mp3");
  const bool jpg =
      !mp3 && opt_.ignoreExif &&
      (EqualsAsciiNoCase(rec.Extension, "jpg") || EqualsAsciiNoCase(rec.Extension, "jpeg") ||
       EqualsAsciiNoCase(rec.Extension, "cr2"));
  const bool flac = opt_.ignoreFlacMetadata && EqualsAsciiNoCase(rec.Extension, "flac");
  if (!pool_) return;
  const HashRange range = HashRangeFor(rec, rec.Extension, mp3, jpg, flac);
  const ExpectedFile expected = WalkExpectation(rec);
  // A digest the cache holds for the file as the walk saw it costs the
  // cascade a probe of a table in memory: handing it to a worker would cost
  // more than that.
  if (cache_ && hasher_->CacheAnswers(expected, range)) return;
  if (!prefetch_)
    prefetch_ = std::make_unique<compare_detail::ReadAhead>(opt_.mode, run_, cache_, *pool_);
  prefetch_->Add(fullPath, range, expected);
}

void ContentComparer::ReadIdentity(FileRecord& rec, const std::string& fullPath) {
  std::string error;
  if (!xGetHardlinkCount2(fullPath, rec, &error, &texts_)) log_.LogProtokoll(error, true);
}

int ContentComparer::Search_CompareContent(FileRecord& newRec, const std::string& newFullPath,
                                           FileRecord& found, const std::string& foundFullPath,
                                           bool isMP3, bool isJPG, bool isFLAC) {
  if (opt_.dontCompareHardlinks && newRec.ArchiveType == 0 && found.ArchiveType == 0) {
    if (newRec.NumberOfLinks == 0) ReadIdentity(newRec, newFullPath);
    if (found.NumberOfLinks == 0) ReadIdentity(found, foundFullPath);
    if (newRec.NumberOfLinks >= 2 && found.NumberOfLinks >= 2 &&
        newRec.FileIndexHigh == found.FileIndexHigh && newRec.FileIndexLow == found.FileIndexLow &&
        newRec.VolumeSerialNumber == found.VolumeSerialNumber)
      return kContentEqual;
  }
  // The cut rules follow the extension of `found` for both records.
  const HashRange rangeNew = HashRangeFor(newRec, found.Extension, isMP3, isJPG, isFLAC);
  const HashRange rangeFound = HashRangeFor(found, found.Extension, isMP3, isJPG, isFLAC);
  if (opt_.mode != kCompareSideBySide)
    return CompareByChecksum(newRec, newFullPath, found, foundFullPath, rangeNew, rangeFound);
  return CompareSideBySide(newRec, newFullPath, found, foundFullPath, rangeNew, rangeFound);
}

bool ContentComparer::PathToRead(FileRecord& rec, const std::string& fullPath, std::string* path,
                                 bool* created) {
  *created = false;
  if (rec.ArchiveType == 0) {
    *path = fullPath;
    return true;
  }
  const bool known = !rec.ArchiveTempFileNr.empty();
  if (!archive_ || !archive_->CreateTempFile(rec, fullPath, path)) {
    rec.HaveErrorMessage = true;
    return false;
  }
  *created = !known && !rec.ArchiveTempFileNr.empty();
  return true;
}

std::string ContentComparer::TakeOrMakeHash(const std::string& path, const HashRange& range,
                                            const ExpectedFile& expected, std::string* error,
                                            bool* fromCache) {
  std::string digest;
  *fromCache = false;
  if (prefetch_ && prefetch_->Take(path, range, expected, &digest, error, fromCache)) return digest;
  const Clock::time_point begin = Clock::now();
  auto progress = [&](std::int64_t done, std::int64_t total) {
    if (progressShown_ || Clock::now() - begin > std::chrono::seconds(2))
      ShowReadProgress(texts_.Get(txt::T5028, {ChecksumName(opt_.mode)}), path, "-", done, total);
  };
  compare_detail::HashSource source;
  digest = hasher_->Hash(
      path, range, &expected, [this] { return run_.StopRequested(); }, progress, error, 0, nullptr,
      &source);
  *fromCache = source.digestFromCache;
  ClearReadProgress();
  return digest;
}

bool ContentComparer::PrefixDigest(const FileRecord& rec, const std::string& fullPath,
                                   const HashRange& range, std::string* digest) {
  if (opt_.mode == kCompareSideBySide || rec.ArchiveType != 0 || rec.HaveErrorMessage) return false;
  const ExpectedFile expected = WalkExpectation(rec);
  bool fromCache = false;
  if (!(prefetch_ && prefetch_->PeekPrefix(fullPath, range, expected, digest, &fromCache))) {
    std::string error;
    compare_detail::HashSource source;
    *digest = hasher_->Hash(
        fullPath, range, &expected, [this] { return run_.StopRequested(); }, nullptr, &error,
        kPrefixDigestBytes, nullptr, &source);
    fromCache = source.digestFromCache;
    TakeCacheMessages();
    // A failure is left to the full comparison, which reports it.
    if (!error.empty() || digest->empty()) return false;
  }
  if (fromCache)
    ++CacheCount;
  else
    ++PrefixCount;
  return true;
}

bool ContentComparer::EnsureHash(FileRecord& rec, const std::string& fullPath,
                                 const HashRange& range, bool* createdTemp, int* code) {
  if (rec.HashCreated[0]) return true;
  if (rec.HaveErrorMessage) {
    *code = kContentRecordInError;
    return false;
  }
  std::string error;
  bool fromCache = false;
  std::string digest;
  if (rec.ArchiveType != 0 && rec.ArchiveTempFileNr.empty() && archive_) {
    // A member without an extract is hashed as it comes out of its archive:
    // nothing is written, and the archive is read on from where it stands.
    bool read = false;
    digest = hasher_->HashStream(
        rec.SIZE, range,
        [&](const compare_detail::Hasher::ByteSink& sink) {
          return read = archive_->StreamMember(rec, fullPath, sink);
        },
        &error);
    if (!read && error.empty()) {
      if (run_.StopRequested()) {
        *code = kContentStopped;
      } else {
        rec.HaveErrorMessage = true;
        *code = kContentTempFileFailed;
      }
      return false;
    }
  } else {
    std::string path;
    if (!PathToRead(rec, fullPath, &path, createdTemp)) {
      *code = kContentTempFileFailed;
      return false;
    }
    digest = TakeOrMakeHash(path, range, WalkExpectation(rec), &error, &fromCache);
  }
  TakeCacheMessages();
  if (!error.empty()) {
    log_.LogProtokoll(texts_.Get(txt::T5029, {error, DisplayPath(rec, fullPath)}), true);
    rec.HaveErrorMessage = true;
    *code = kContentChecksumFailed;
    return false;
  }
  if (digest.empty()) {  // stopped
    *code = kContentStopped;
    return false;
  }
  if (fromCache) {
    ++CacheCount;
  } else {
    ++ChecksumCount;
    progress_.SetLabel(Label::ChecksumCreated, FormatNumber(ChecksumCount));
  }
  rec.SetHash(std::move(digest));
  if (*createdTemp && opt_.deleteTempFilesAfterCreateChecksum && archive_ &&
      archive_->DeleteTempFile(rec))
    rec.ArchiveTempFileNr.clear();
  return true;
}

int ContentComparer::CompareByChecksum(FileRecord& newRec, const std::string& newFullPath,
                                       FileRecord& found, const std::string& foundFullPath,
                                       const HashRange& rangeNew, const HashRange& rangeFound) {
  bool createdFound = false, createdNew = false;
  int code = kContentDifferent;
  bool ok = EnsureHash(found, foundFullPath, rangeFound, &createdFound, &code) &&
            EnsureHash(newRec, newFullPath, rangeNew, &createdNew, &code);
  bool equal = false;
  if (ok) {
    ++CompareCount;
    equal = found.Hash == newRec.Hash;
  }
  // Temporary files made for this call do not outlive it.
  if (archive_) {
    if (createdFound && !found.ArchiveTempFileNr.empty() && archive_->DeleteTempFile(found))
      found.ArchiveTempFileNr.clear();
    if (createdNew && !newRec.ArchiveTempFileNr.empty() && archive_->DeleteTempFile(newRec))
      newRec.ArchiveTempFileNr.clear();
  }
  if (!ok) return code;
  return equal ? kContentEqual : kContentDifferent;
}

int ContentComparer::CompareSideBySide(FileRecord& newRec, const std::string& newFullPath,
                                       FileRecord& found, const std::string& foundFullPath,
                                       const HashRange& rangeNew, const HashRange& rangeFound) {
  if (found.HaveErrorMessage || newRec.HaveErrorMessage) return kContentRecordInError;
  ++CompareCount;
  std::string pathFound, pathNew;
  bool created = false;
  if (!PathToRead(found, foundFullPath, &pathFound, &created) ||
      !PathToRead(newRec, newFullPath, &pathNew, &created))
    return kContentTempFileFailed;

  std::string error;
  int percent = 0;
  const bool percentRoute = opt_.percent < 100;
  int code = SideBySide(pathFound, pathNew, rangeFound, rangeNew, WalkExpectation(found),
                        WalkExpectation(newRec), percentRoute, &percent, &error);
  ClearReadProgress();
  bool equal = percentRoute ? code == 0 && percent >= opt_.percent : code == 0;
  if (!error.empty()) {
    equal = false;
    if (code == kContentOpenFailedFound) {
      found.HaveErrorMessage = true;
      log_.LogProtokoll(texts_.Get(txt::T3753, {DisplayPath(found, foundFullPath), error}), true);
    } else if (code == kContentOpenFailedNew) {
      newRec.HaveErrorMessage = true;
      log_.LogProtokoll(texts_.Get(txt::T3753, {DisplayPath(newRec, newFullPath), error}), true);
    } else {
      log_.LogProtokoll(texts_.Get(txt::T5136, {DisplayPath(found, foundFullPath),
                                                DisplayPath(newRec, newFullPath), error}),
                        true);
    }
  }
  if (equal) {
    found.IsReferenceFile = true;
    found.PercentMatch = 100;
    newRec.IsReferenceFile = false;
    newRec.PercentMatch = static_cast<std::uint8_t>(percentRoute ? percent : 100);
    return kContentEqual;
  }
  if (code == 0 || code == 1) return kContentDifferent;
  return code;
}

int ContentComparer::CompareFileAtEnd(const ReadFile& f1, const ReadFile& f2, std::int64_t& last1,
                                      std::int64_t& last2, const std::string& path1,
                                      const std::string& path2) {
  const std::int64_t block = opt_.compareFileEndFirst;
  const std::size_t n = static_cast<std::size_t>(block);
  if (buf1_.size() < n) buf1_.resize(n);
  if (buf2_.size() < n) buf2_.resize(n);
  const std::int64_t at1 = last1 - block + 1, at2 = last2 - block + 1;
  last1 -= block;
  last2 -= block;
  std::string err;
  if (at1 < 0) {
    log_.LogProtokoll(texts_.Get(txt::T3748, {path1, ErrorText(EINVAL), "CompareFileAtEnd:1"}),
                      true);
    return 8;
  }
  if (at2 < 0) {
    log_.LogProtokoll(texts_.Get(txt::T3748, {path2, ErrorText(EINVAL), "CompareFileAtEnd:2"}),
                      true);
    return 9;
  }
  std::int64_t got = f1.ReadAt(buf1_.data(), n, at1, &err);
  if (got >= 0 && got < block) err = kShortRead;
  if (!err.empty()) {
    log_.LogProtokoll(texts_.Get(txt::T3757, {path1, err}), true);
    return 10;
  }
  got = f2.ReadAt(buf2_.data(), n, at2, &err);
  if (got >= 0 && got < block) err = kShortRead;
  if (!err.empty()) {
    log_.LogProtokoll(texts_.Get(txt::T3757, {path2, err}), true);
    return 11;
  }
  return std::memcmp(buf1_.data(), buf2_.data(), n) == 0 ? 0 : 1;
}

int ContentComparer::SideBySide(const std::string& path1, const std::string& path2,
                                const HashRange& r1, const HashRange& r2, const ExpectedFile& e1,
                                const ExpectedFile& e2, bool percentRoute, int* percentOut,
                                std::string* error) {
  *percentOut = 0;
  ReadFile f1, f2;
  std::string err;
  // Each file must still be the one the walk saw, at the size it saw: a file
  // cut short or grown since then is equal to nothing.
  if (!f1.Open(path1, true, &err, &e1)) {
    *error = "CreateFileWide1: " + err;
    return kContentOpenFailedFound;
  }
  if (!f2.Open(path2, true, &err, &e2)) {
    *error = "CreateFileWide2: " + err;
    return kContentOpenFailedNew;
  }
  const std::int64_t size1 = f1.Size(&err);
  if (size1 < 0) {
    *error = "CreateFileWide1: " + err;
    return kContentOpenFailedFound;
  }
  const std::int64_t size2 = f2.Size(&err);
  if (size2 < 0) {
    *error = "CreateFileWide2: " + err;
    return kContentOpenFailedNew;
  }
  if (size1 == 0 && size2 == 0) {
    *percentOut = 100;
    return 0;
  }
  std::int64_t start1 = 0, start2 = 0, last1 = size1 - 1, last2 = size2 - 1;
  if (r1.useMp3Cuts || r1.useExifCuts) {
    start1 = r1.cutFromStart;
    last1 -= r1.cutFromEnd;
  }
  if (r2.useMp3Cuts || r2.useExifCuts) {
    start2 = r2.cutFromStart;
    last2 -= r2.cutFromEnd;
  }
  std::int64_t length = last1 - start1 + 1;
  if (length != last2 - start2 + 1 || length < 0 || start1 < 0 || start2 < 0) return 1;
  if (length == 0) {
    *percentOut = 100;
    return 0;
  }
  const std::int64_t total = length;

  if (!percentRoute && opt_.compareFileEndFirst > 0 && length > opt_.compareFileEndFirst) {
    int code = CompareFileAtEnd(f1, f2, last1, last2, path1, path2);
    if (code != 0) return code;
    length -= opt_.compareFileEndFirst;
  }
  f1.Sequential(start1, length);
  f2.Sequential(start2, length);

  const std::int64_t bufFirst = opt_.compareBuffer[0], bufMax = opt_.compareBuffer[1],
                     bufStep = opt_.compareBuffer[2];
  std::int64_t readSize = length <= bufFirst ? length : bufFirst;
  const std::size_t need = static_cast<std::size_t>(std::min(length, bufMax));
  if (buf1_.size() < need) buf1_.resize(need);
  if (buf2_.size() < need) buf2_.resize(need);

  const Clock::time_point begin = Clock::now();
  std::int64_t done = 0, differences = 0;
  int code = 0;
  for (;;) {
    const std::size_t n = static_cast<std::size_t>(readSize);
    std::int64_t got = f1.ReadAt(buf1_.data(), n, start1 + done, &err);
    if (got >= 0 && got < readSize) err = kShortRead;
    if (!err.empty()) {
      *error = "ReadFile1: " + err;
      code = kContentReadFailedFound;
      break;
    }
    got = f2.ReadAt(buf2_.data(), n, start2 + done, &err);
    if (got >= 0 && got < readSize) err = kShortRead;
    if (!err.empty()) {
      *error = "ReadFile2: " + err;
      code = kContentReadFailedNew;
      break;
    }
    done += readSize;
    if (percentRoute) {
      for (std::size_t i = 0; i < n; ++i) differences += buf1_[i] != buf2_[i];
    } else if (std::memcmp(buf1_.data(), buf2_.data(), n) != 0) {
      code = 1;
      break;
    }
    if (done >= length) break;
    if (progressShown_ || Clock::now() - begin > std::chrono::milliseconds(1500))
      ShowReadProgress("", path1, path2, done, length);
    if (run_.StopRequested()) {
      code = kContentStopped;
      break;
    }
    if (readSize != bufMax) readSize = std::min(readSize + bufStep, bufMax);
    if (done + readSize > length) readSize = length - done;
  }
  if (percentRoute) {
    int pct = code == 0 ? 100 : 0;
    if (differences > 0) {
      // 100 - differences * 100 / length, the fraction cut off.
      std::int64_t q = differences * 100 / total, r = differences * 100 % total;
      pct = static_cast<int>(100 - q - (r != 0 ? 1 : 0));
    }
    *percentOut = pct;
  } else {
    *percentOut = code == 0 ? 100 : 0;
  }
  return code;
}

void ContentComparer::ShowReadProgress(const std::string& action, const std::string& path1,
                                       const std::string& path2, std::int64_t done,
                                       std::int64_t total) {
  if (!progressShown_) {
    progressShown_ = true;
    if (!action.empty()) progress_.SetLabel(Label::Step, action);
    progress_.SetLabel(Label::Zipdatei, path2 == "-" ? path1 : path1 + " <> " + path2);
  }
  progress_.SetLabel(Label::ZipProgress,
                     FormatNumber(done) + " / " + FormatNumber(total) + " Bytes )");
  progress_.ProgressBar(total > 0 ? static_cast<int>(done * 100 / total) : 0);
}

void ContentComparer::ClearReadProgress() {
  if (!progressShown_) return;
  progressShown_ = false;
  progress_.SetLabel(Label::Zipdatei, "");
  progress_.SetLabel(Label::ZipProgress, "");
  progress_.ProgressBar(0);
}

}  // namespace kelvor
