#include "esd/expat_dom_builder.h"

#include "platform/safe_fs.h"

#include <algorithm>
#include <cstring>
#include <errno.h>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace esd {

namespace {

// Hands a file out in small pieces while asking the system for it in large
// ones, as a buffered stream does: the parser takes a chunk at a time, but a
// system call per chunk would cost more than parsing it.
class BufferedFile {
public:
  static constexpr size_t kBufferBytes = 64 * 1024;

  explicit BufferedFile(int fd) : fd_(fd), buffer_(new char[kBufferBytes]) {}

  // Copies up to `size` bytes, fewer only at the end of the file; -1 on error.
  ssize_t Read(char* out, size_t size) {
    size_t got = 0;
    while (got < size) {
      if (next_ == end_) {
        const ssize_t filled = Fill();
        if (filled < 0) {
          return -1;
        }
        if (filled == 0) {
          break;
        }
      }
      const size_t taken = std::min(size - got, end_ - next_);
      std::memcpy(out + got, buffer_.get() + next_, taken);
      next_ += taken;
      got += taken;
    }
    return static_cast<ssize_t>(got);
  }

private:
  ssize_t Fill() {
    for (;;) {
      const ssize_t read_now = read(fd_, buffer_.get(), kBufferBytes);
      if (read_now < 0 && errno == EINTR) {
        continue;
      }
      next_ = 0;
      end_ = read_now > 0 ? static_cast<size_t>(read_now) : 0;
      return read_now;
    }
  }

  int fd_;
  std::unique_ptr<char[]> buffer_;
  size_t next_ = 0;
  size_t end_ = 0;
};

} // namespace

template <typename Node> ExpatDOMBuilder<Node>::~ExpatDOMBuilder() {
  Clear();
}

template <typename Node>
bool ExpatDOMBuilder<Node>::Create(const char* encoding, const char* namespace_separator) {
  Clear();
  parser_ = XML_ParserCreate_MM(encoding, nullptr, namespace_separator);
  if (!parser_) {
    return false;
  }
  XML_SetUserData(parser_, this);
  try {
    arena_ = XMLArena::Create();
    document_.reset(new (*arena_) Node(*arena_, std::string_view()));
    document_->MarkAsDocument();
    document_->SetAttributeData("version", "1.0");
    document_->SetAttributeData("encoding", "UTF-8");
    nodeStack_.push(document_.get());
  } catch (const std::bad_alloc&) {
    return false;
  }
  XML_SetStartElementHandler(parser_, &OnStartElement);
  XML_SetEndElementHandler(parser_, &OnEndElement);
  XML_SetCharacterDataHandler(parser_, &OnCharacterData);
  XML_SetXmlDeclHandler(parser_, &OnDeclarationInstruction);
  return true;
}

template <typename Node>
bool ExpatDOMBuilder<Node>::ParseFile(const std::string& path, bool result_if_no_data) {
  switch (ReadFile(path, nullptr)) {
  case FileResult::kParsed:
    return true;
  case FileResult::kNoData:
  case FileResult::kUnreadable:
    return result_if_no_data;
  case FileResult::kMalformed:
  case FileResult::kOverLimit:
    break;
  }
  return false;
}

template <typename Node>
typename ExpatDOMBuilder<Node>::FileResult ExpatDOMBuilder<Node>::ReadFile(const std::string& path,
                                                                           struct stat* info) {
  // Only a regular file holds data, opened without following a link at its
  // name. Anything else (a folder, a FIFO that would block for ever, a
  // link) holds none, as a missing file: a caller that puts malformed files
  // aside must never be told that such an item failed to parse. A regular
  // file that cannot be read is another matter: its bytes are unknown.
  platform::ScopedFd file;
  struct stat status;
  if (!platform::OpenFileAt(path, platform::OpenOptions(), file)) {
    const bool nothing_there =
        errno == ENOENT || errno == ENOTDIR || errno == ELOOP || errno == EINVAL || errno == EISDIR;
    return nothing_there ? FileResult::kNoData : FileResult::kUnreadable;
  }
  if (fstat(file.get(), &status) != 0) {
    return FileResult::kUnreadable;
  }
  if (info) {
    *info = status;
  }
  if (status.st_size <= 0) {
    return FileResult::kNoData;
  }
  if (!parser_ || !arena_ || !document_) {
    return FileResult::kOverLimit; // no parser or document: nothing was learnt of the bytes
  }
  if (static_cast<uint64_t>(status.st_size) > kMaxFileBytes) {
    return FileResult::kOverLimit;
  }
  // The nodes take what the file gives them into the arena until the read
  // ends, however it ends.
  struct Filling {
    explicit Filling(XMLArena& filled) : arena(filled) { arena.StartFilling(); }
    ~Filling() { arena.StopFilling(); }
    XMLArena& arena;
  } filling(*arena_);
  BufferedFile bytes(file.get());
  uint64_t total = 0;
  for (;;) {
    void* buffer = XML_GetBuffer(parser_, static_cast<int>(kChunkBytes));
    if (!buffer) {
      return FileResult::kOverLimit;
    }
    const ssize_t got = bytes.Read(static_cast<char*>(buffer), kChunkBytes);
    if (got < 0) {
      return FileResult::kUnreadable;
    }
    total += static_cast<uint64_t>(got);
    if (total > kMaxFileBytes) {
      return FileResult::kOverLimit; // the file grew past the limit while being read
    }
    // A short read is the end of the file: that chunk is the final one.
    const bool final_chunk = static_cast<size_t>(got) < kChunkBytes;
    const bool accepted =
        XML_ParseBuffer(parser_, static_cast<int>(got), final_chunk) == XML_STATUS_OK;
    if (limitReached_ || PendingMarkupBytes() > kMaxMarkupBytes) {
      return FileResult::kOverLimit;
    }
    // The parser running out of memory says nothing about the bytes.
    if (!accepted && XML_GetErrorCode(parser_) == XML_ERROR_NO_MEMORY) {
      return FileResult::kOverLimit;
    }
    if (!accepted) {
      return FileResult::kMalformed;
    }
    if (final_chunk) {
      return FileResult::kParsed;
    }
  }
}

template <typename Node> void ExpatDOMBuilder<Node>::Clear() {
  if (parser_) {
    XML_ParserFree(parser_);
    parser_ = nullptr;
  }
  while (!nodeStack_.empty()) {
    nodeStack_.pop();
  }
  document_.reset();
  if (arena_) {
    arena_->Release();
    arena_ = nullptr;
  }
  inElement_ = false;
  nodeCount_ = 0;
  stopped_ = false;
  limitReached_ = false;
}

template <typename Node> int ExpatDOMBuilder<Node>::PendingMarkupBytes() const {
  int offset = 0;
  int size = 0;
  if (!XML_GetInputContext(parser_, &offset, &size)) {
    return 0;
  }
  return size - offset;
}

template <typename Node> void ExpatDOMBuilder<Node>::Stop() {
  stopped_ = true;
  XML_StopParser(parser_, XML_FALSE);
}

template <typename Node>
void ExpatDOMBuilder<Node>::StartElement(const XML_Char* name, const XML_Char** attributes) {
  if (++nodeCount_ > kMaxNodes) {
    limitReached_ = true;
    Stop();
    return;
  }
  // Room to destroy the tree is made before it grows deeper, so that a tree
  // read until memory ran out can still be destroyed.
  Node::ReserveDestructionDepth(nodeStack_.size() + 1);
  Node* parent = nodeStack_.top();
  inElement_ = true;
  std::unique_ptr<Node> node(new (*arena_) Node(*arena_, std::string_view(name)));
  Node* added = node.get();
  parent->AddChild(added);
  node.release(); // the parent owns it now
  nodeStack_.push(added);
  for (const XML_Char** pair = attributes; pair && pair[0]; pair += 2) {
    scratchName_.assign(pair[0]);
    scratchValue_.assign(pair[1]);
    added->SetAttributeData(scratchName_, scratchValue_);
  }
}

template <typename Node>
void XMLCALL ExpatDOMBuilder<Node>::OnStartElement(void* user_data, const XML_Char* name,
                                                   const XML_Char** attributes) {
  auto* builder = static_cast<ExpatDOMBuilder*>(user_data);
  if (builder->stopped_) {
    return;
  }
  // No exception may cross the parser's C frames; running out of memory
  // ends the parse with an error instead.
  try {
    builder->StartElement(name, attributes);
  } catch (const std::bad_alloc&) {
    builder->limitReached_ = true;
    builder->Stop();
  }
}

template <typename Node>
void XMLCALL ExpatDOMBuilder<Node>::OnEndElement(void* user_data, const XML_Char* /*name*/) {
  auto* builder = static_cast<ExpatDOMBuilder*>(user_data);
  if (builder->stopped_) {
    return;
  }
  builder->inElement_ = false;
  builder->nodeStack_.pop();
}

template <typename Node>
void XMLCALL ExpatDOMBuilder<Node>::OnCharacterData(void* user_data, const XML_Char* text,
                                                    int length) {
  auto* builder = static_cast<ExpatDOMBuilder*>(user_data);
  if (builder->stopped_ || !builder->inElement_) {
    return;
  }
  try {
    builder->scratchValue_.assign(text, static_cast<size_t>(length));
    builder->nodeStack_.top()->AppendData(builder->scratchValue_);
  } catch (const std::bad_alloc&) {
    builder->limitReached_ = true;
    builder->Stop();
  }
}

template <typename Node>
void XMLCALL ExpatDOMBuilder<Node>::OnDeclarationInstruction(void* user_data,
                                                             const XML_Char* version,
                                                             const XML_Char* /*encoding*/,
                                                             int /*standalone*/) {
  auto* builder = static_cast<ExpatDOMBuilder*>(user_data);
  if (!version) {
    return;
  }
  builder->document_->SetAttributeData("version", version);
  builder->document_->SetAttributeData("encoding", "UTF-8");
}

template class ExpatDOMBuilder<XMLDocumentNode>;

} // namespace esd
