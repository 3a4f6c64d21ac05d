// The time of day, the date, and the timers.
#include <qal/clock.h>
#include <qal/logger.h>
#include <sys/time.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

// Without a lock: one thread makes the timers, and each is used by one thread at a time.
struct TimerTable {
  double TimerSum[QAL_MAX_TIMERS];    // seconds; 0 at first
  double TimerStart[QAL_MAX_TIMERS];  // seconds since the epoch
  int32_t NTimers;                    // made so far
} timers;

timeval time_of_day() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return now;
}

// Any thread may log with time stamps, hence localtime_r. It need not read the time zone by itself,
// as localtime does, hence tzset.
std::tm convert(std::time_t second) {
  std::tm local{};
  tzset();
  localtime_r(&second, &local);
  return local;
}

// A copy of the time zone's name in the environment. A name that is too long is not kept.
class ZoneName {
 public:
  bool is(const char *name) const {
    return name ? set_ && std::strncmp(name, name_, sizeof name_) == 0 : !set_;
  }

  bool keep(const char *name) {
    set_ = name != nullptr;
    if (!set_) return true;
    const std::size_t length = strnlen(name, sizeof name_);
    if (length == sizeof name_) return false;
    std::memcpy(name_, name, length + 1);
    return true;
  }

 private:
  bool set_ = false;
  char name_[64];
};

// Converting takes longer than the rest of a time-stamped line, because it examines the file of the
// time zone. So each thread remembers the second that it converted last.
std::tm local_time() {
  thread_local struct {
    bool known = false;
    std::time_t second;
    ZoneName zone;
    std::tm local;
  } last;
  const std::time_t now = std::time(nullptr);
  const char *const zone = std::getenv("TZ");
  if (!last.known || now != last.second || !last.zone.is(zone)) {
    last.local = convert(now);
    last.second = now;
    last.known = last.zone.keep(zone);
  }
  return last.local;
}

char *put_two_digits(char *out, int number) {
  *out++ = static_cast<char>('0' + number / 10);
  *out++ = static_cast<char>('0' + number % 10);
  return out;
}

// Writes "HH:MM:SS" and its terminator, and returns the terminator's place.
char *put_time_of_day(char *out, const std::tm &local) {
  out = put_two_digits(out, local.tm_hour);
  *out++ = ':';
  out = put_two_digits(out, local.tm_min);
  *out++ = ':';
  out = put_two_digits(out, local.tm_sec);
  *out = '\0';
  return out;
}

bool is_in_table(int id) { return id >= 0 && id < QAL_MAX_TIMERS; }

bool is_made(int id) { return id >= 0 && id < timers.NTimers; }

void report_invalid_stop() { qal_error("stop_timer: error, invalid timer number\n"); }

}  // namespace

void qal_time_get(QalTime *out) {
  const timeval now = time_of_day();
  out->seconds = static_cast<int32_t>(now.tv_sec);
  out->microseconds = static_cast<int32_t>(now.tv_usec);
}

double qal_time_get_s(void) {
  const timeval now = time_of_day();
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1e6;
}

int qal_date_get(int out[6]) {
  const std::tm local = local_time();
  out[0] = local.tm_year + 1900;
  out[1] = local.tm_mon + 1;
  out[2] = local.tm_mday;
  out[3] = local.tm_hour;
  out[4] = local.tm_min;
  out[5] = local.tm_sec;
  return out[5];
}

int qal_date_get_string(char *dst, int long_form) {
  const std::tm local = local_time();
  char *out = dst;
  if (long_form != QAL_DATE_SHORT) {
    // Deliberate: the month counts from 0 here, unlike that of qal_date_get.
    out = put_two_digits(out, local.tm_mon);
    *out++ = ':';
    out = put_two_digits(out, local.tm_mday);
    *out++ = ' ';
  }
  return static_cast<int>(put_time_of_day(out, local) - dst);
}

void qal_timer_new(int *id) {
  // Deliberate: the last entry is never used, and the message names the start function.
  if (timers.NTimers >= QAL_MAX_TIMERS - 1) {
    qal_error("qal_timer_start: error, exceeded QAL_MAX_TIMERS\n");
    return;
  }
  *id = timers.NTimers++;
}

void qal_timer_start(const int *id) {
  if (is_in_table(*id)) timers.TimerStart[*id] = qal_time_get_s();
}

void qal_timer_stop(const int *id) {
  if (!is_made(*id)) {
    report_invalid_stop();
    return;
  }
  timers.TimerSum[*id] += qal_time_get_s() - timers.TimerStart[*id];
}

void qal_timer_clear(const int *id) {
  // Deliberate: entries without a timer may be cleared as well, and the message is that of the stop
  // function.
  if (!is_in_table(*id)) {
    report_invalid_stop();
    return;
  }
  timers.TimerSum[*id] = 0;
}

void qal_timer_print(const int *id) {
  if (!is_made(*id)) {
    qal_error("print_timer: error, invalid timer number\n");
    return;
  }
  qal_info("\ttime: %f\n", static_cast<double>(static_cast<float>(timers.TimerSum[*id])));
}

float qal_timer_elapsed(const int *id) {
  return is_in_table(*id) ? static_cast<float>(timers.TimerSum[*id]) : 0.0F;
}
