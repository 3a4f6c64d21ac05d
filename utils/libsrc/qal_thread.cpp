// The table of threads: their indices, start, join and cancellation.
#include <qal/thread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "internal/mutex.hpp"
#include "internal/thread_index.hpp"

QalThreadKey qal::internal::_qal_thread_self_key;
bool qal::internal::self_key_made = false;

namespace {

using qal::internal::_qal_thread_self_key;
using qal::internal::Lock;
using qal::internal::Mutex;
using qal::internal::self_key_made;

constexpr int no_free_slot = -1;
constexpr int slot_count = 2048;

enum SlotState : std::int32_t { slot_free = 0, slot_claimed = 1, slot_finished = 2 };

struct ThreadSlot {
  std::atomic<std::int32_t> state;  // a finishing thread writes it without the mutex
  std::int32_t result;
  QalThreadHandle handle;
  QalThreadRoutine routine;
  void *argument;
};

Mutex QalThreadsInternalMutex;
constinit std::array<ThreadSlot, slot_count> _qal_threads{};
std::int32_t _qal_thread_idx QAL_GUARDED_BY(QalThreadsInternalMutex) = 0;

// The slots behind these were never claimed. Nothing is written there, because most programs use
// one page of the table and would wait for the system to provide the others.
std::int32_t used_slots QAL_GUARDED_BY(QalThreadsInternalMutex) = QAL_THREAD_MAIN_INDEX + 1;

// Which slots have a platform thread that has not been joined. A slot's state does not say so: a
// start that failed leaves its slot claimed, and start-up clears the states of all.
constinit std::array<std::atomic<bool>, slot_count> joinable{};

bool in_table(std::intptr_t index) { return index >= 0 && index < slot_count; }

void clear_table() QAL_REQUIRES(QalThreadsInternalMutex) {
  for (auto &slot : std::span{_qal_threads}.first(static_cast<std::size_t>(used_slots))) {
    slot.state = slot_free;
    slot.result = 0;
  }
  _qal_thread_idx = 0;
}

void claim(ThreadSlot &slot, QalThreadRoutine routine, void *argument) {
  slot.state = slot_claimed;
  slot.result = QAL_THREAD_NO_RESULT;
  slot.routine = routine;
  slot.argument = argument;
}

// The search begins after the slot that was examined last.
int next_free_slot() QAL_REQUIRES(QalThreadsInternalMutex) {
  for (int tested = 0; tested < slot_count; ++tested) {
    _qal_thread_idx = (_qal_thread_idx + 1) % slot_count;
    if (_qal_threads[static_cast<std::size_t>(_qal_thread_idx)].state == slot_free) {
      used_slots = std::max(used_slots, _qal_thread_idx + 1);
      return _qal_thread_idx;
    }
  }
  return no_free_slot;
}

void set_own_index(void *index) QAL_EXCLUDES(QalThreadsInternalMutex) {
  // The creator holds the mutex until it has filled the slot and stored the index: no routine
  // begins before that.
  const Lock lock(QalThreadsInternalMutex);
  if (self_key_made) pthread_setspecific(_qal_thread_self_key, index);
}

void *start(void *index) QAL_EXCLUDES(QalThreadsInternalMutex) {
  set_own_index(index);
  const auto number = reinterpret_cast<std::intptr_t>(index);
  if (!in_table(number)) return nullptr;
  ThreadSlot &slot = _qal_threads[static_cast<std::size_t>(number)];
  if (!slot.routine) return nullptr;
  slot.result = slot.routine(slot.argument);
  slot.state = slot_finished;
  return nullptr;
}

}  // namespace

int qal_thread_init() QAL_EXCLUDES(QalThreadsInternalMutex) {
  {
    const Lock lock(QalThreadsInternalMutex);
    clear_table();
  }
  if (const int status = qal_thread_init_sys(); status != QAL_THREAD_OK) return status;
  if (qal_thread_key_create(&_qal_thread_self_key) == QAL_THREAD_OK) self_key_made = true;
  claim(_qal_threads[QAL_THREAD_MAIN_INDEX], nullptr, nullptr);
  if (self_key_made) pthread_setspecific(_qal_thread_self_key, nullptr);
  qal_thread_mutex_init(&QalThreadsInternalMutex.platform());
  return QAL_THREAD_OK;
}

int qal_thread_setconcurrency(int) { return QAL_THREAD_OK; }

int qal_thread_index() { return qal::internal::thread_index(); }

int qal_thread_self() { return qal::internal::thread_index(); }

int qal_thread_create(int *index_out, QalThreadRoutine routine, void *argument)
    QAL_EXCLUDES(QalThreadsInternalMutex) {
  if (!index_out) return QAL_THREAD_FAILED;
  const Lock lock(QalThreadsInternalMutex);
  const int index = next_free_slot();
  if (index == no_free_slot) return QAL_THREAD_FAILED;
  const auto at = static_cast<std::size_t>(index);
  claim(_qal_threads[at], routine, argument);
  const int status = qal_thread_create_sys(&_qal_threads[at].handle, index);
  if (status == QAL_THREAD_OK) joinable[at] = true;
  // Deliberate: a slot whose start failed stays claimed, and its index is handed out so that the
  // caller can join it.
  *index_out = index;
  return status;
}

int qal_thread_join(const int *index, int *result_out) QAL_EXCLUDES(QalThreadsInternalMutex) {
  if (!index || !in_table(*index)) return QAL_THREAD_FAILED;
  const auto at = static_cast<std::size_t>(*index);
  ThreadSlot &slot = _qal_threads[at];
  const int status = joinable[at] ? qal_thread_join_sys(slot.handle) : QAL_THREAD_FAILED;
  const Lock lock(QalThreadsInternalMutex);
  if (status == QAL_THREAD_OK) joinable[at] = false;
  if (result_out) *result_out = slot.result;
  if (at != QAL_THREAD_MAIN_INDEX) slot.state = slot_free;
  return status;
}

int qal_thread_cancel(const int *index) {
  if (!index || !in_table(*index)) return QAL_THREAD_FAILED;
  const auto at = static_cast<std::size_t>(*index);
  return joinable[at] ? qal_thread_cancel_sys(_qal_threads[at].handle) : QAL_THREAD_FAILED;
}

void *qal_thread_start_void(void *index) QAL_EXCLUDES(QalThreadsInternalMutex) {
  return start(index);
}

void *qal_thread_start_int(void *index) QAL_EXCLUDES(QalThreadsInternalMutex) {
  return start(index);
}
