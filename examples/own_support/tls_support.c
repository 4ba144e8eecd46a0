/* A support layer of one's own: the ten functions that libvesk calls, over a blocking OpenSSL connection each, with the
 * trace of a program that keeps none. A program with a transport, an event loop or a log of its own begins here.
 *
 * Build: cc fetch.c tls_support.c $(pkg-config --cflags vesk) \
 *          $(pkg-config --variable=libdir vesk)/libvesk.a $(pkg-config --libs libssl libcrypto) -lstdc++ -o fetch
 * Run:   ./fetch 127.0.0.1 40123 /tmp/keys backup-2026 */
#define _POSIX_C_SOURCE 200809L
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <netdb.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "orn/support.h"

/* ---- Time ---- */

static long long now_ms(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/* Waits until the socket can be read or written. Returns 0, or timed_out when the deadline passes first. */
static int wait_for(int fd, short events, long long deadline, int timed_out) {
  for (;;) {
    long long left = deadline - now_ms();
    if (left <= 0) return timed_out;
    struct pollfd waiting = {fd, events, 0};
    int ready = poll(&waiting, 1, left < INT_MAX ? (int)left : INT_MAX);
    if (ready > 0) return 0;
    if (ready < 0 && errno != EINTR) return CONN_ERR_SYSTEM;
  }
}

/* After an OpenSSL call that did not succeed, and before which the error queue was empty: waits for what it needs, or
 * tells why there is no going on. */
static int go_on(SSL *tls, int result, long long deadline, int timed_out) {
  switch (SSL_get_error(tls, result)) {
    case SSL_ERROR_WANT_READ:
      return wait_for(SSL_get_fd(tls), POLLIN, deadline, timed_out);
    case SSL_ERROR_WANT_WRITE:
      return wait_for(SSL_get_fd(tls), POLLOUT, deadline, timed_out);
    case SSL_ERROR_ZERO_RETURN:
      return CONN_ERR_CLOSED;
    case SSL_ERROR_SYSCALL:
      return errno == ECONNRESET || errno == EPIPE ? CONN_ERR_RESET : CONN_ERR_CLOSED;
    default:
      if (SSL_get_verify_result(tls) != X509_V_OK) return CONN_ERR_PEER_NOT_TRUSTED;
      return CONN_ERR_PROTOCOL;
  }
}

/* ---- Connection ---- */

static int connect_to(const struct addrinfo *address, long long deadline, int *status) {
  int fd = socket(address->ai_family, address->ai_socktype, address->ai_protocol);
  if (fd < 0) {
    *status = CONN_ERR_RESOURCES;
    return -1;
  }
  int error = 0;
  socklen_t size = sizeof error;
  if (fcntl(fd, F_SETFL, O_NONBLOCK) != 0 || fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
    error = errno;
  } else if (connect(fd, address->ai_addr, address->ai_addrlen) != 0) {
    error = errno;
    if (error == EINPROGRESS) {
      *status = wait_for(fd, POLLOUT, deadline, CONN_ERR_CONNECT_TIMED_OUT);
      if (*status == 0 && getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0) return fd;
      close(fd);
      if (*status == 0) *status = error == ECONNREFUSED ? CONN_ERR_REFUSED : CONN_ERR_UNREACHABLE;
      return -1;
    }
  }
  if (error == 0) return fd;
  close(fd);
  *status = error == ECONNREFUSED ? CONN_ERR_REFUSED : CONN_ERR_UNREACHABLE;
  return -1;
}

/* Every address in turn. The name is looked up without regard to the deadline. */
static int connect_host(const char *host, const char *port, long long deadline, int *status) {
  struct addrinfo hints = {.ai_socktype = SOCK_STREAM, .ai_flags = AI_NUMERICSERV}, *addresses = NULL;
  *status = CONN_ERR_NAME_NOT_FOUND;
  if (getaddrinfo(host, port, &hints, &addresses) != 0) return -1;
  int fd = -1;
  for (const struct addrinfo *a = addresses; a != NULL && fd < 0; a = a->ai_next) fd = connect_to(a, deadline, status);
  freeaddrinfo(addresses);
  return fd;
}

/* Whom to trust, and who we are. */
static SSL_CTX *context_of(const char *authority, const char *certificate, const char *key, int *status) {
  SSL_CTX *context = SSL_CTX_new(TLS_client_method());
  *status = CONN_ERR_TLS_SETUP;
  if (context == NULL) return NULL;
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, NULL);
  if (SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) == 1) {
    *status = CONN_ERR_AUTHORITY_UNREADABLE;
    if (SSL_CTX_load_verify_file(context, authority) == 1) {
      *status = CONN_ERR_CERTIFICATE_UNREADABLE;
      if (SSL_CTX_use_certificate_chain_file(context, certificate) == 1) {
        *status = CONN_ERR_KEY_UNREADABLE;
        if (SSL_CTX_use_PrivateKey_file(context, key, SSL_FILETYPE_PEM) == 1) return context;
      }
    }
  }
  SSL_CTX_free(context);
  return NULL;
}

/* The server's certificate must be for the host that was asked for. */
static int expect_host(SSL *tls, const char *host) {
  if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls), host) == 1) return 1;
  return SSL_set1_host(tls, host) == 1 && SSL_set_tlsext_host_name(tls, host) == 1;
}

static int shake_hands(SSL *tls, const char *host, int fd, long long deadline) {
  if (!expect_host(tls, host) || SSL_set_fd(tls, fd) != 1) return CONN_ERR_TLS_SETUP;
  for (;;) {
    ERR_clear_error();
    int result = SSL_connect(tls);
    if (result == 1) return 0;
    int status = go_on(tls, result, deadline, CONN_ERR_CONNECT_TIMED_OUT);
    if (status != 0) return status;
  }
}

int SetupConnection(void **phTls, void **phTlsAux, void **phTlsRead, const char *certPath2, const char *certPath1,
                    int reserved, const char *certPath3, const char *host, const char *port, int connectTimeout) {
  (void)reserved;
  *phTls = *phTlsAux = *phTlsRead = NULL;
  long long deadline = now_ms() + connectTimeout * 1000LL;
  int status = 0;
  SSL_CTX *context = context_of(certPath1, certPath2, certPath3, &status);
  if (context == NULL) return status;
  SSL *tls = SSL_new(context);
  SSL_CTX_free(context);
  if (tls == NULL) return CONN_ERR_TLS_SETUP;
  int fd = connect_host(host, port, deadline, &status);
  if (fd >= 0) {
    status = shake_hands(tls, host, fd, deadline);
    if (status != 0) close(fd);
  }
  if (status != 0) {
    SSL_free(tls);
    return status;
  }
  *phTls = tls;
  return 0;
}

int TLSWrite(void *hTls, const void *buffer, int count) {
  long long deadline = now_ms() + 60000;
  for (;;) {
    ERR_clear_error();
    int result = SSL_write(hTls, buffer, count);
    if (result == count) return 0; /* all or nothing, as there are no partial writes */
    int status = go_on(hTls, result, deadline, CONN_ERR_WRITE_TIMED_OUT);
    if (status != 0) return status;
  }
}

int TLSRead(void *hTls, void *hTlsRead, void *buffer, int count, int timeout, int *bytesRead) {
  (void)hTlsRead;
  long long deadline = now_ms() + timeout * 1000LL;
  int have = 0, status = 0;
  while (have < count && status == 0) {
    ERR_clear_error();
    int result = SSL_read(hTls, (char *)buffer + have, count - have);
    if (result > 0) {
      have += result;
    } else {
      status = go_on(hTls, result, deadline, CONN_ERR_READ_TIMED_OUT);
    }
  }
  if (bytesRead != NULL) *bytesRead = have;
  return status;
}

int TLSTeardown(void *hTls, void *hTlsAux, void *hTlsRead) {
  (void)hTlsAux;
  (void)hTlsRead;
  if (hTls == NULL) return 0;
  int fd = SSL_get_fd(hTls);
  SSL_shutdown(hTls);
  SSL_free(hTls);
  close(fd);
  return 0;
}

/* ---- Trace, certificate summaries, lists: what this program does without ---- */

void TraceT(int reserved, const char *path, int line, const char *format, ...) {
  (void)reserved;
  (void)path;
  (void)line;
  (void)format;
}

void DumpBuffer(int reserved, const char *path, int line, const void *bytes, int count, const char *label) {
  (void)reserved;
  (void)path;
  (void)line;
  (void)bytes;
  (void)count;
  (void)label;
}

void X509_get_info(X509 *certificate, CertificateInfo *info) {
  memset(info, 0, sizeof *info);
  if (certificate != NULL) X509_NAME_oneline(X509_get_subject_name(certificate), info->subject, sizeof info->subject);
}

char *CertificateInfo_to_string(const CertificateInfo *info) {
  return strdup(info->subject);
}

/* Calls that fill lists fail here: nothing can create one. */
int ll_append(LinkedList *list, const void *element) {
  (void)list;
  (void)element;
  return CONN_ERR_ARGUMENT;
}

size_t ll_get_element_size(const LinkedList *list) {
  (void)list;
  return 0;
}
