// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/TraceWriter.hpp>

#include <tresk/foundation/Diagnostics.hpp>
#include <tresk/foundation/Pin.hpp>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <typeinfo>
#include <unordered_map>

namespace Ostrel {

namespace {

using Clock = std::chrono::steady_clock;

/// The length of the UTF-8 sequence of one character that begins at `i`; 0 if there is none.
std::size_t sequenceLength(std::string_view text, std::size_t i) noexcept {
  const auto byte = [&text](std::size_t k) { return k < text.size() ? static_cast<unsigned char>(text[k]) : 0U; };
  const auto follows = [&](std::size_t k) { return (byte(i + k) & 0xC0U) == 0x80U; };
  const unsigned first = byte(i);
  const unsigned second = byte(i + 1);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  if (first < 0xE0) return follows(1) ? 2 : 0;
  if (first < 0xF0) {
    // Neither longer than it need be, nor one half of a pair of UTF-16.
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
    return follows(1) && follows(2) ? 3 : 0;
  }
  if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
  return follows(1) && follows(2) && follows(3) ? 4 : 0;
}

}  // namespace

/// The file and what it needs, shared with the functions that caches hold.
class TraceWriter::File {
 public:
  explicit File(const std::string& path) : start_(Clock::now()) {
    errno = 0;
    stream_ = std::fopen(path.c_str(), "wbe");
    if (stream_ == nullptr) {
      const int reason = errno;
      throw std::runtime_error("cannot write the trace file '" + path +
                               "': " + std::generic_category().message(reason));
    }
    try {
      std::setvbuf(stream_, nullptr, _IONBF, 0);  // the buffer is our own
      const MutexLock lock(mutex_);
      put(R"({"displayTimeUnit":"ms","traceEvents":[)");
      putHead("M", 1, 0, "process_name");
      put(R"(,"args":{"name":"tresk"}})");
      thisThread();
    } catch (...) {
      std::fclose(stream_);
      throw;
    }
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(); }

  void begin(const Profiler::Scope& scope) noexcept {
    const Clock::time_point now = Clock::now();
    const MutexLock lock(mutex_);
    Thread* const thread = writingThread();
    if (thread == nullptr) return;
    ++thread->nOpen;
    putHead("B", thread->number, sinceStart(now), scope.name);
    put(R"(,"cat":"scope","args":{"source":)");
    putText(scope.file, ':', scope.line);
    put(R"(,"function":)");
    putText(scope.function);
    put(R"(,"level":)");
    putNumber(scope.level);
    if (!scope.detail.empty()) {
      put(R"(,"detail":)");
      putText(scope.detail);
    }
    put("}}");
  }

  /// The end of the innermost scope of this thread; left out if none is open in the file.
  void end() noexcept {
    const Clock::time_point now = Clock::now();
    const MutexLock lock(mutex_);
    if (stream_ == nullptr) return;
    const auto found = threads_.find(std::this_thread::get_id());
    if (found == threads_.end() || found->second.nOpen == 0) return;
    --found->second.nOpen;
    putEnd(found->second.number, sinceStart(now));
  }

  void counter(std::string_view name, double value) noexcept {
    if (!std::isfinite(value)) return;
    const Clock::time_point now = Clock::now();
    const MutexLock lock(mutex_);
    Thread* const thread = writingThread();
    if (thread != nullptr) putCounter(thread->number, sinceStart(now), name, value);
  }

  void cacheEvent(const CacheEvent& event, std::string_view counterName) noexcept {
    if (event.kind == CacheEventKind::Used || isClosed_.load(std::memory_order_relaxed)) return;
    std::string type;
    long long number = 0;
    try {
      const Pin<Creature> creator(event.creator);
      if (creator) {
        const Creature& object = *creator;
        type = Typename(typeid(object));
        number = object.getSerialNumber();
      }
    } catch (...) {
      const MutexLock lock(mutex_);
      isComplete_ = false;
      return;
    }
    const MutexLock lock(mutex_);
    Thread* const thread = writingThread();
    if (thread == nullptr) return;
    const long long time = event.time == Clock::time_point() ? sinceStart(Clock::now()) : sinceStart(event.time);
    if (event.kind == CacheEventKind::Produced) {
      // Within the trace before it is rounded: what no whole number holds has no rounded value.
      const double nanoseconds = std::min(static_cast<double>(time), std::max(0.0, event.seconds * 1e9));
      const long long duration = std::min(time, std::llround(nanoseconds));
      putHead("X", thread->number, time - duration, "production");
      put(R"(,"dur":)");
      putMicroseconds(duration);
    } else {
      putHead("i", thread->number, time, toString(event.kind));
      put(R"(,"s":"t")");
    }
    put(R"(,"cat":"cache","args":{"bytes":)");
    putNumber(event.nBytes);
    if (!type.empty()) {
      put(R"(,"creator":)");
      putText(type);
      put(R"(,"creator number":)");
      putNumber(number);
    }
    if (!event.text.empty()) {
      put(R"(,"text":)");
      putText(event.text);
    }
    put("}}");
    putCounter(thread->number, time, counterName, static_cast<double>(event.nHeldBytes));
  }

  bool close() noexcept {
    isClosed_.store(true, std::memory_order_relaxed);
    const MutexLock lock(mutex_);
    const Clock::time_point now = Clock::now();  // later than all that stands in the file
    if (stream_ == nullptr) return isComplete_;
    for (auto& [id, thread] : threads_)
      for (; thread.nOpen > 0; --thread.nOpen) putEnd(thread.number, sinceStart(now));
    put("\n]}\n");
    flush();
    if (std::fclose(stream_) != 0) isComplete_ = false;
    stream_ = nullptr;
    return isComplete_;
  }

  bool isComplete() const noexcept {
    const MutexLock lock(mutex_);
    return isComplete_;
  }

 private:
  struct Thread {
    int number = 0;
    long long nOpen = 0;  ///< scopes whose end is not in the file
  };

  /// This thread; made known in the file if it is new.
  Thread& thisThread() TRESK_REQUIRES(mutex_) {
    const auto [place, isNew] = threads_.try_emplace(std::this_thread::get_id());
    Thread& thread = place->second;
    if (!isNew) return thread;
    thread.number = static_cast<int>(threads_.size());
    putHead("M", thread.number, 0, "thread_name");
    put(R"(,"args":{"name":)");
    if (thread.number == 1)
      putText("main");
    else
      putText("thread", ' ', thread.number);
    put("}}");
    return thread;
  }

  /// The same, or null if the file is closed, or the thread cannot be made known for lack of memory.
  Thread* writingThread() noexcept TRESK_REQUIRES(mutex_) {
    if (stream_ == nullptr) return nullptr;
    try {
      return &thisThread();
    } catch (...) {
      isComplete_ = false;
      return nullptr;
    }
  }

  /// Nanoseconds since the construction; 0 for what was earlier.
  long long sinceStart(Clock::time_point time) const noexcept {
    return std::max(
        0LL, static_cast<long long>(std::chrono::duration_cast<std::chrono::nanoseconds>(time - start_).count()));
  }

  /// Begins an event; the caller ends it with a brace.
  void putHead(std::string_view phase, int thread, long long time, std::string_view name) noexcept
      TRESK_REQUIRES(mutex_) {
    putPhase(phase, thread, time);
    put(R"(,"name":)");
    putText(name);
  }
  void putPhase(std::string_view phase, int thread, long long time) noexcept TRESK_REQUIRES(mutex_) {
    put(isFirst_ ? "\n{\"ph\":\"" : ",\n{\"ph\":\"");
    isFirst_ = false;
    put(phase);
    put(R"(","ts":)");
    putMicroseconds(time);
    put(R"(,"pid":1,"tid":)");
    putNumber(thread);
  }
  void putEnd(int thread, long long time) noexcept TRESK_REQUIRES(mutex_) {
    putPhase("E", thread, time);
    put("}");
  }
  void putCounter(int thread, long long time, std::string_view name, double value) noexcept TRESK_REQUIRES(mutex_) {
    putHead("C", thread, time, name);
    put(R"(,"args":{"value":)");
    putNumber(value);
    put("}}");
  }

  void putMicroseconds(long long nanoseconds) noexcept TRESK_REQUIRES(mutex_) {
    putNumber(nanoseconds / 1000);
    const auto rest = static_cast<int>(nanoseconds % 1000);
    const auto digit = [](int n) { return static_cast<char>('0' + n); };
    const std::array<char, 4> fraction{'.', digit(rest / 100), digit(rest / 10 % 10), digit(rest % 10)};
    put({fraction.data(), fraction.size()});
  }

  template <class N>
  void putNumber(N value) noexcept TRESK_REQUIRES(mutex_) {
    std::array<char, 32> text;
    const std::to_chars_result result = std::to_chars(text.data(), text.data() + text.size(), value);
    put({text.data(), static_cast<std::size_t>(result.ptr - text.data())});
  }

  void putText(std::string_view text) noexcept TRESK_REQUIRES(mutex_) {
    put("\"");
    putEscaped(text);
    put("\"");
  }
  /// The same with a number behind it.
  void putText(std::string_view text, char separator, int number) noexcept TRESK_REQUIRES(mutex_) {
    put("\"");
    putEscaped(text);
    put({&separator, 1});
    putNumber(number);
    put("\"");
  }

  void putEscaped(std::string_view text) noexcept TRESK_REQUIRES(mutex_) {
    static constexpr std::string_view Hex = "0123456789abcdef";
    std::size_t nPlain = 0;  // characters before `i` that go into the file as they are
    std::size_t i = 0;
    const auto putPlain = [&]() TRESK_REQUIRES(mutex_) {
      put(text.substr(i - nPlain, nPlain));
      nPlain = 0;
    };
    while (i < text.size()) {
      const auto byte = static_cast<unsigned char>(text[i]);
      const bool isPlain = byte >= 0x20 && byte != '"' && byte != '\\';
      if (byte < 0x80 && isPlain) {
        ++i;
        ++nPlain;
        continue;
      }
      const std::size_t length = sequenceLength(text, i);
      if (length != 0 && isPlain) {
        i += length;
        nPlain += length;
        continue;
      }
      putPlain();
      ++i;
      if (length == 0) {
        put("\\ufffd");
      } else if (byte >= 0x20) {
        const std::array<char, 2> escape{'\\', static_cast<char>(byte)};
        put({escape.data(), escape.size()});
      } else {
        const std::array<char, 6> escape{'\\', 'u', '0', '0', Hex[byte / 16U], Hex[byte % 16U]};
        put({escape.data(), escape.size()});
      }
    }
    putPlain();
  }

  void put(std::string_view text) noexcept TRESK_REQUIRES(mutex_) {
    while (!text.empty()) {
      if (nBuffered_ == buffer_.size()) flush();
      const std::size_t n = std::min(text.size(), buffer_.size() - nBuffered_);
      std::memcpy(buffer_.data() + nBuffered_, text.data(), n);
      nBuffered_ += n;
      text.remove_prefix(n);
    }
  }

  /// Writes the buffer; nothing any more after a failure, and nothing in a process that was forked off: the file
  /// belongs to the one that made it.
  void flush() noexcept TRESK_REQUIRES(mutex_) {
    if (!hasFailed_ && getpid() == process_ && std::fwrite(buffer_.data(), 1, nBuffered_, stream_) != nBuffered_) {
      hasFailed_ = true;
      isComplete_ = false;
    }
    nBuffered_ = 0;
  }

  const Clock::time_point start_;
  const pid_t process_ = getpid();
  std::atomic<bool> isClosed_{false};  ///< relaxed: spares work only; `stream_` decides
  mutable Mutex mutex_;
  std::FILE* stream_ TRESK_GUARDED_BY(mutex_) = nullptr;  ///< null once the file is closed
  std::unordered_map<std::thread::id, Thread> threads_ TRESK_GUARDED_BY(mutex_);
  std::size_t nBuffered_ TRESK_GUARDED_BY(mutex_) = 0;
  bool isFirst_ TRESK_GUARDED_BY(mutex_) = true;
  bool isComplete_ TRESK_GUARDED_BY(mutex_) = true;
  bool hasFailed_ TRESK_GUARDED_BY(mutex_) = false;
  std::array<char, 1 << 13> buffer_ TRESK_GUARDED_BY(mutex_);
};

TraceWriter::TraceWriter(const std::string& path) : file_(std::make_shared<File>(path)) {}

TraceWriter::~TraceWriter() { close(); }

void TraceWriter::attach() {
  const MutexLock lock(mutex_);
  if (isClosed_ || isAttached_) return;
  former_ = Profiler::setListener(this);
  isAttached_ = true;
}

CacheListener TraceWriter::makeCacheListener(const std::string& counterName) const {
  return [file = file_, counterName](const CacheEvent& event) { file->cacheEvent(event, counterName); };
}

void TraceWriter::counter(const std::string& name, double value) { file_->counter(name, value); }

bool TraceWriter::close() noexcept {
  {
    const MutexLock lock(mutex_);
    Profiler::replaceListener(this, former_);  // also if a later listener has put it back since it was closed
    isClosed_ = true;
  }
  return file_->close();
}

bool TraceWriter::isComplete() const noexcept { return file_->isComplete(); }

void TraceWriter::begin(const Profiler::Scope& scope) { file_->begin(scope); }

void TraceWriter::end(const Profiler::Scope&) { file_->end(); }

}  // namespace Ostrel
