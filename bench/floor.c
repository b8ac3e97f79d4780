/* The lower limit of the job, to measure the server against: it forwards tool calls over the same
 * socket with the same threads and checks nothing on the way. It accepts only well-formed messages
 * of the benchmark's own client, with their id and method in front.
 *
 *   floor SOCKET LIST    the control socket, and a file that holds the result of tools/list */
#define _GNU_SOURCE
#include <fcntl.h>
#include <limits.h>
#include <malloc.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

enum { mostCalls = 1024, headRoom = 256, tailRoom = 64, blockBytes = 1 << 16 };

struct Text {
  const char* start;
  size_t length;
};

struct Call {
  char* line;
  size_t length;
  struct Text id;
  int connection; /* -1 before and after; guarded by `lock` */
};

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t taskWaits = PTHREAD_COND_INITIALIZER;
static struct Call calls[mostCalls];
static struct Call* freeCalls[mostCalls];
static struct Call* tasks[mostCalls];
static unsigned freeCount, taskCount, idleCount;
static pthread_mutex_t outputLock = PTHREAD_MUTEX_INITIALIZER;
static struct sockaddr_un address = {.sun_family = AF_UNIX};
static int usesHeaders;

static void writeAll(int to, const char* bytes, size_t length) {
  while (length > 0) {
    const ssize_t count = write(to, bytes, length);
    if (count <= 0) _exit(0);
    bytes += count;
    length -= (size_t)count;
  }
}

static int readAll(int from, char* to, size_t length) {
  while (length > 0) {
    const ssize_t count = recv(from, to, length, 0);
    if (count <= 0) return 0;
    to += count;
    length -= (size_t)count;
  }
  return 1;
}

/* Writes the frame of the response {HEAD body TAIL}; `headRoom` bytes before `body` and
 * `tailRoom` after it are free, so the body is never copied. */
static void respond(struct Text id, const char* head, char* body, size_t length, const char* tail) {
  char text[headRoom];
  const int textLength = snprintf(text, sizeof text, "{\"jsonrpc\":\"2.0\",\"id\":%.*s,%s",
                                  (int)id.length, id.start, head);
  char header[64] = "";
  const size_t tailLength = strlen(tail) - (usesHeaders ? 1 : 0); /* the line feed is its last */
  int headerLength = 0;
  if (usesHeaders) {
    headerLength = snprintf(header, sizeof header, "Content-Length: %zu\r\n\r\n",
                            (size_t)textLength + length + tailLength);
  }
  memcpy(body + length, tail, tailLength);
  char* start = memcpy(body - textLength, text, (size_t)textLength);
  start = memcpy(start - headerLength, header, (size_t)headerLength);
  pthread_mutex_lock(&outputLock);
  writeAll(STDOUT_FILENO, start, (size_t)(body + length - start) + tailLength);
  pthread_mutex_unlock(&outputLock);
}

static void respondWith(struct Text id, const char* text, size_t length) {
  char* room = malloc(headRoom + length + tailRoom);
  memcpy(room + headRoom, text, length);
  respond(id, "\"result\":", room + headRoom, length, "}\n");
  free(room);
}

static void setConnection(struct Call* call, int connection) {
  pthread_mutex_lock(&lock);
  call->connection = connection;
  pthread_mutex_unlock(&lock);
}

static void carry(struct Call* call) {
  const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(connection, (struct sockaddr*)&address, sizeof address) != 0) abort();
  setConnection(call, connection);
  /* The line is after four free bytes, for the prefix. */
  const uint32_t length = (uint32_t)call->length;
  for (int i = 0; i < 4; ++i) call->line[i] = (char)(length >> (24 - 8 * i));
  writeAll(connection, call->line, 4 + call->length);
  unsigned char prefix[4];
  if (readAll(connection, (char*)prefix, sizeof prefix)) {
    const size_t size = (size_t)prefix[0] << 24 | (size_t)prefix[1] << 16 | (size_t)prefix[2] << 8 |
                        (size_t)prefix[3];
    char* room = malloc(headRoom + size + tailRoom);
    if (readAll(connection, room + headRoom, size)) {
      respond(call->id,
              "\"result\":{\"content\":[{\"type\":\"text\",\"text\":\"Done.\"}],\"structuredContent\":",
              room + headRoom, size, ",\"isError\":false}}\n");
    }
    free(room);
  }
  setConnection(call, -1);
  close(connection);
}

static void* work(void* unused) {
  pthread_mutex_lock(&lock);
  for (;;) {
    for (++idleCount; taskCount == 0;) pthread_cond_wait(&taskWaits, &lock);
    --idleCount;
    struct Call* call = tasks[--taskCount];
    pthread_mutex_unlock(&lock);
    carry(call);
    free(call->line);
    pthread_mutex_lock(&lock);
    freeCalls[freeCount++] = call;
  }
  return unused;
}

static struct Text valueAfter(const char* line, size_t length, const char* key) {
  const char* at = memmem(line, length, key, strlen(key));
  if (at == NULL) return (struct Text){"null", 4};
  at += strlen(key);
  return (struct Text){at, strcspn(at, ",}")};
}

static void dispatch(const char* line, size_t length) {
  char* copy = malloc(4 + length + 1);
  memcpy(copy + 4, line, length);
  copy[4 + length] = '\0';
  pthread_mutex_lock(&lock);
  struct Call* call = freeCalls[--freeCount];
  *call = (struct Call){copy, length, valueAfter(copy + 4, length, "\"id\":"), -1};
  tasks[taskCount++] = call;
  const int needsThread = taskCount > idleCount;
  pthread_mutex_unlock(&lock);
  pthread_t thread;
  if (needsThread && pthread_create(&thread, NULL, work, NULL) == 0) pthread_detach(thread);
  pthread_cond_signal(&taskWaits);
}

static void cancel(struct Text id) {
  pthread_mutex_lock(&lock);
  for (int i = 0; i < mostCalls; ++i) {
    if (calls[i].connection >= 0 && calls[i].id.length == id.length &&
        memcmp(calls[i].id.start, id.start, id.length) == 0) {
      shutdown(calls[i].connection, SHUT_RDWR);
    }
  }
  pthread_mutex_unlock(&lock);
}

static void answerList(struct Text id, const char* path) {
  static char* list;
  static struct stat status;
  if (list == NULL) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0 || fstat(file, &status) != 0) abort();
    list = malloc((size_t)status.st_size);
    if (read(file, list, (size_t)status.st_size) != status.st_size) abort();
    close(file);
  }
  respondWith(id, list, (size_t)status.st_size);
}

static void take(const char* line, size_t length, const char* listPath) {
  static const char initialized[] =
      "{\"protocolVersion\":\"2025-06-18\",\"capabilities\":{\"tools\":{}},"
      "\"serverInfo\":{\"name\":\"floor\",\"version\":\"1\"}}";
  const struct Text method = valueAfter(line, length, "\"method\":");
  if (strncmp(method.start, "\"tools/call\"", method.length) == 0) {
    dispatch(line, length);
    return;
  }
  const struct Text id = valueAfter(line, length, "\"id\":");
  if (strncmp(method.start, "\"ping\"", method.length) == 0) respondWith(id, "{}", 2);
  if (strncmp(method.start, "\"tools/list\"", method.length) == 0) answerList(id, listPath);
  if (strncmp(method.start, "\"initialize\"", method.length) == 0) {
    respondWith(id, initialized, sizeof initialized - 1);
  }
  if (strncmp(method.start, "\"notifications/cancelled\"", method.length) == 0) {
    cancel(valueAfter(line, length, "\"requestId\":"));
  }
}

int main(int argumentCount, char** arguments) {
  if (argumentCount != 3) return 2;
  /* If it had to fetch new pages for every large app response, it would not be a limit. */
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
  mallopt(M_ARENA_MAX, 1);
  strncpy(address.sun_path, arguments[1], sizeof address.sun_path - 1);
  for (int i = 0; i < mostCalls; ++i) {
    calls[i].connection = -1;
    freeCalls[freeCount++] = &calls[i];
  }
  size_t room = blockBytes, filled = 0, scanned = 0;
  char* buffer = malloc(room + 1);
  for (;;) {
    if (room - filled < blockBytes) buffer = realloc(buffer, (room *= 2) + 1);
    const ssize_t count = read(STDIN_FILENO, buffer + filled, room - filled);
    if (count <= 0) _exit(0);
    filled += (size_t)count;
    char* start = buffer;
    for (;;) {
      const char* end = memchr(start + scanned, '\n', filled - (size_t)(start - buffer) - scanned);
      if (end == NULL) break;
      scanned = 0;
      size_t length = (size_t)(end - start) + 1;
      if (strncmp(start, "Content-Length: ", 16) == 0) {
        char* body = start + length + 2; /* after the blank line */
        length = strtoul(start + 16, NULL, 10);
        if ((size_t)(body - buffer) + length > filled) break;
        usesHeaders = 1;
        start = body;
      }
      take(start, length, arguments[2]);
      start += length;
    }
    filled -= (size_t)(start - buffer);
    memmove(buffer, start, filled);
    scanned = usesHeaders ? 0 : filled;
  }
}
