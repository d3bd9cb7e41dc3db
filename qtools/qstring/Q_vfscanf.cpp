#include "Q_vfscanf.h"

#include "Q_scanner.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <functional>

namespace {

bool isInBufferOf(const FILE* stream, const char* position) {
  const std::less_equal<> notAfter;
  return position != nullptr && notAfter(stream->_IO_read_base, position) &&
         notAfter(position, stream->_IO_read_end);
}

int refillFromStream(ScanSource* source) {
  if (isInBufferOf(source->stream, source->position)) {
    updateFILE(source);
  }
  // Deliberate: all output first, so that a prompt can be read before this waits for its answer.
  (void)fflush(nullptr);
  char first = '\0';
  const bool read = fscanf(source->stream, "%c", &first) == 1;
  if (read) {
    (void)ungetc(static_cast<unsigned char>(first), source->stream);
  }
  updateVFILE(source);  // at the end, too: the stream has moved its buffer
  return read ? 0 : -1;
}

int refillFromCallback(ScanSource* source) {
  int count = 0;
  if (source->read != nullptr && source->base != nullptr) {
    count = source->read(source, const_cast<char*>(source->base), source->size);
  }
  if (count <= 0) {
    source->flags |= Q_SCAN_EOF;
    return -1;
  }
  source->position = source->base;
  source->unread = count;
  return 0;
}

}  // namespace

int Q_vfscanf(ScanSource* source, const char* format, va_list args) {
  q_scan::Input input(*source);
  va_list copy;
  va_copy(copy, args);
  const int assigned = q_scan::scan(input, format, &copy);
  va_end(copy);
  return assigned;
}

int __Qrefill(ScanSource* source) {
  if ((source->flags & Q_SCAN_EOF) != 0) {
    return -1;
  }
  return source->stream != nullptr ? refillFromStream(source) : refillFromCallback(source);
}

int eofread(void* /*cookie*/, char* /*buffer*/, int /*size*/) { return 0; }

void updateFILE(ScanSource* source) {
  source->stream->_IO_read_ptr = const_cast<char*>(source->position);
}

void updateVFILE(ScanSource* source) {
  const ptrdiff_t unread = source->stream->_IO_read_end - source->stream->_IO_read_ptr;
  source->position = source->stream->_IO_read_ptr;
  source->unread = static_cast<int>(std::min<ptrdiff_t>(unread, INT_MAX));
}
