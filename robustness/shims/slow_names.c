/* A name service that takes a minute to know nothing. */
#include <netdb.h>
#include <time.h>

int getaddrinfo(const char *node, const char *service, const struct addrinfo *hints,
                struct addrinfo **result) {
  struct timespec rest = {60, 0};
  (void)node;
  (void)service;
  (void)hints;
  *result = NULL;
  while (nanosleep(&rest, &rest) != 0) {
  }
  return EAI_AGAIN;
}
