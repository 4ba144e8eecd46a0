// Linked lists of copied elements of one size.
#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "orn/support.h"

// The element's bytes follow the node, aligned for any record.
struct alignas(std::max_align_t) LinkedListNode {
  LinkedListNode *next;

  void *element() { return this + 1; }
  const void *element() const { return this + 1; }
};

struct LinkedList {
  std::size_t element_bytes;
  std::size_t count;
  LinkedListNode *first;
  LinkedListNode *last;
};

LinkedList *ll_create(size_t elementSize) {
  auto *list = static_cast<LinkedList *>(std::calloc(1, sizeof(LinkedList)));
  if (list) list->element_bytes = elementSize;
  return list;
}

void ll_free(LinkedList *list) {
  if (!list) return;
  for (LinkedListNode *node = list->first; node;) {
    LinkedListNode *next = node->next;
    OPENSSL_cleanse(node->element(), list->element_bytes);
    std::free(node);
    node = next;
  }
  std::free(list);
}

int ll_append(LinkedList *list, const void *element) {
  if (!list || !element) return CONN_ERR_ARGUMENT;
  if (list->element_bytes > SIZE_MAX - sizeof(LinkedListNode)) return CONN_ERR_RESOURCES;
  auto *node = static_cast<LinkedListNode *>(std::malloc(sizeof(LinkedListNode) + list->element_bytes));
  if (!node) return CONN_ERR_RESOURCES;
  node->next = nullptr;
  std::memcpy(node->element(), element, list->element_bytes);
  (list->last ? list->last->next : list->first) = node;
  list->last = node;
  ++list->count;
  return 0;
}

size_t ll_get_element_size(const LinkedList *list) {
  return list ? list->element_bytes : 0;
}

size_t ll_count(const LinkedList *list) {
  return list ? list->count : 0;
}

const LinkedListNode *ll_first(const LinkedList *list) {
  return list ? list->first : nullptr;
}

const LinkedListNode *ll_next(const LinkedListNode *node) {
  return node ? node->next : nullptr;
}

const void *ll_element(const LinkedListNode *node) {
  return node ? node->element() : nullptr;
}
