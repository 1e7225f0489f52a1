// The authority on disk.
#include <fcntl.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "live/proxy/ca/authority.h"

namespace live {
namespace {

using Memory = std::unique_ptr<BIO, decltype(&BIO_free)>;

std::string TextOf(const Memory& memory) {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &bytes);
  return {bytes, static_cast<size_t>(size)};
}

std::runtime_error SystemError(const std::string& what) {
  return std::runtime_error(what + ": " + std::strerror(errno));
}

void WriteAll(int file, const std::string& text, const std::string& path) {
  for (size_t written = 0; written < text.size();) {
    const ssize_t count = write(file, text.data() + written, text.size() - written);
    if (count < 0 && errno != EINTR) throw SystemError("cannot write " + path);
    if (count > 0) written += static_cast<size_t>(count);
  }
  if (fsync(file) != 0) throw SystemError("cannot write " + path);
}

// A file of its own beside the final place, gone at the end in any case.
class DraftFile {
 public:
  DraftFile(const std::string& folder, const std::string& text) : path_(folder + "/.draft.XXXXXX") {
    file_ = mkostemp(path_.data(), O_CLOEXEC);  // readable by its owner alone
    if (file_ < 0) throw SystemError("cannot write in the folder " + folder);
    WriteAll(file_, text, path_);
  }
  ~DraftFile() {
    close(file_);
    unlink(path_.c_str());
  }
  DraftFile(const DraftFile&) = delete;
  DraftFile& operator=(const DraftFile&) = delete;

  int File() const { return file_; }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  int file_ = -1;
};

std::string AuthorityAsPem(const Authority& authority) {
  const Memory memory(BIO_new(BIO_s_mem()), BIO_free);
  if (memory == nullptr || PEM_write_bio_PrivateKey(memory.get(), authority.key.get(), nullptr, nullptr, 0,
                                                    nullptr, nullptr) != 1) {
    throw std::runtime_error("OpenSSL cannot encode a key");
  }
  return TextOf(memory) + RootAsPem(authority);
}

std::string ReadPrivateFile(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    throw SystemError("cannot read the certificate authority " + path +
                      (errno == ENOENT ? " (make one first)" : ""));
  }
  struct stat state {};
  std::string text;
  fstat(file, &state);
  const bool isOwn = S_ISREG(state.st_mode) && state.st_uid == geteuid();
  const bool isPrivate = (state.st_mode & 077) == 0;
  if (isOwn && isPrivate) {
    std::array<char, 64 * 1024> buffer;
    ssize_t count = 0;
    while (text.size() < buffer.size() && (count = read(file, buffer.data(), buffer.size())) > 0) {
      text.append(buffer.data(), static_cast<size_t>(count));
    }
  }
  close(file);
  if (!isOwn) throw std::runtime_error("the certificate authority " + path + " is not a file of this user");
  if (!isPrivate) {
    throw std::runtime_error("the key in " + path +
                             " can be used by other users of this machine: make a new authority in "
                             "another folder, or, when nobody else can have read it, chmod 600 it");
  }
  return text;
}

std::string TextOfAddress(const ASN1_OCTET_STRING& range) {  // the address with its mask behind it
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int kind = ASN1_STRING_length(&range) == 8 ? AF_INET : AF_INET6;
  inet_ntop(kind, ASN1_STRING_get0_data(&range), text.data(), text.size());
  return text.data();
}

// What the root says of the hosts that it is for.
std::vector<std::string> ReadOnlyHosts(const X509& root) {
  const std::unique_ptr<NAME_CONSTRAINTS, decltype(&NAME_CONSTRAINTS_free)> constraints(
      static_cast<NAME_CONSTRAINTS*>(X509_get_ext_d2i(&root, NID_name_constraints, nullptr, nullptr)),
      NAME_CONSTRAINTS_free);
  std::vector<std::string> hosts;
  if (constraints == nullptr) return hosts;
  for (int i = 0; i < sk_GENERAL_SUBTREE_num(constraints->permittedSubtrees); ++i) {
    const GENERAL_NAME& name = *sk_GENERAL_SUBTREE_value(constraints->permittedSubtrees, i)->base;
    if (name.type == GEN_DNS) {
      const auto* const bytes = reinterpret_cast<const char*>(ASN1_STRING_get0_data(name.d.dNSName));
      hosts.emplace_back(bytes, static_cast<size_t>(ASN1_STRING_length(name.d.dNSName)));
    } else if (name.type == GEN_IPADD) {
      hosts.push_back(TextOfAddress(*name.d.iPAddress));
    }
  }
  return hosts;
}

}  // namespace

std::string RootAsPem(const Authority& authority) {
  const Memory memory(BIO_new(BIO_s_mem()), BIO_free);
  if (memory == nullptr || PEM_write_bio_X509(memory.get(), authority.root.get()) != 1) {
    throw std::runtime_error("OpenSSL cannot encode a certificate");
  }
  return TextOf(memory);
}

void StoreAuthority(const Authority& authority, const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw std::runtime_error("cannot make the folder " + folder + ": " + error.message());
  const std::string path = folder + "/authority.pem", rootPath = folder + "/root.pem";
  {
    const DraftFile draft(folder, AuthorityAsPem(authority));
    if (link(draft.Path().c_str(), path.c_str()) != 0) {
      if (errno != EEXIST) throw SystemError("cannot write " + path);
      throw std::runtime_error("there is a certificate authority in " + folder +
                               " already; it is kept, because browsers may trust it. Delete " + path +
                               " to replace it");
    }
  }
  const DraftFile draft(folder, RootAsPem(authority));
  if (fchmod(draft.File(), 0644) != 0 || rename(draft.Path().c_str(), rootPath.c_str()) != 0) {
    throw SystemError("cannot write " + rootPath);
  }
}

Authority LoadAuthority(const std::string& folder) {
  const std::string path = folder + "/authority.pem";
  const std::string text = ReadPrivateFile(path);
  const Memory memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
  char noPassword[] = "";  // otherwise OpenSSL would ask for one at the terminal
  Authority authority;
  authority.key =
      PrivateKey(PEM_read_bio_PrivateKey(memory.get(), nullptr, nullptr, noPassword), EVP_PKEY_free);
  authority.root = Certificate(PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr), X509_free);
  if (authority.key == nullptr || authority.root == nullptr || X509_check_ca(authority.root.get()) != 1 ||
      X509_check_private_key(authority.root.get(), authority.key.get()) != 1) {
    throw std::runtime_error(path +
                             " holds no certificate authority with its "
                             "key; delete it and make a new one");
  }
  if (X509_cmp_current_time(X509_get0_notAfter(authority.root.get())) < 0) {
    throw std::runtime_error("the certificate authority " + path +
                             " has run out; delete it and make a new one");
  }
  authority.onlyHosts = ReadOnlyHosts(*authority.root);
  return authority;
}

}  // namespace live
