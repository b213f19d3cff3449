#include "update_spec/spec.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

using Part = UpdateSpecVer1::Part;

// The node of the list back to the part that holds it.
Part* partOf(ListNode* node) {
    return reinterpret_cast<Part*>(reinterpret_cast<char*>(node) - offsetof(Part, node));
}

size_t recordSize(const Part& part) {
    return isScript(part) ? offsetof(Part, name) + sizeof part.name : sizeof(Part);
}

}  // namespace

void initParts(UpdateSpecVer1* spec) {
    spec->parts.next = &spec->parts;
    spec->parts.prev = &spec->parts;
}

bool appendPart(UpdateSpecVer1* spec, const Part& part) {
    void* record = malloc(recordSize(part));
    if (record == nullptr) return false;
    memcpy(record, &part, recordSize(part));
    ListNode* node = &static_cast<Part*>(record)->node;
    node->next = &spec->parts;
    node->prev = spec->parts.prev;
    node->prev->next = node;
    spec->parts.prev = node;
    return true;
}

Part* firstPart(UpdateSpecVer1* spec) {
    return spec->parts.next == &spec->parts ? nullptr : partOf(spec->parts.next);
}

Part* nextPart(UpdateSpecVer1* spec, Part* part) {
    return part->node.next == &spec->parts ? nullptr : partOf(part->node.next);
}

void freePart(Part* part) {
    part->node.prev->next = part->node.next;
    part->node.next->prev = part->node.prev;
    part->node.next = nullptr;
    part->node.prev = nullptr;
    if (!isScript(*part)) free(part->img.deps);
    free(part);
}

void freeSpec(UpdateSpecVer1* spec) {
    if (spec == nullptr) return;
    for (Part* part = firstPart(spec); part != nullptr;) {
        Part* next = nextPart(spec, part);
        freePart(part);
        part = next;
    }
    free(spec);
}
