/**
 * The card SDK's C functions, as this project uses them.
 *
 * In production they come from the card maker's two shared objects; on a development machine two stand-ins of
 * the same SONAMEs drive a simulated card. The library is linked against the SONAMEs and does not know which
 * of the two it runs on. The signatures are the project's own reading of the SDK; where the maker's header
 * differs in a type, only this file and the two folders that wrap it have to change.
 *
 * Every function may be called from any thread, but one object from one thread at a time.
 */
#ifndef KOVA_SDK_ENYX_HW_H
#define KOVA_SDK_ENYX_HW_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct enyx_hw_filter enyx_hw_filter;
typedef struct enyx_hw_accelerator_descriptor enyx_hw_accelerator_descriptor;
typedef struct enyx_hw_accelerator enyx_hw_accelerator;
typedef struct enyx_hw_mmio_descriptor enyx_hw_mmio_descriptor;
typedef struct enyx_hw_mmio enyx_hw_mmio;
typedef struct enyx_hw_core_tree enyx_hw_core_tree;
typedef struct enyx_hw_core enyx_hw_core;
typedef struct enyx_hw_a2c_stream_descriptor enyx_hw_a2c_stream_descriptor;
typedef struct enyx_hw_a2c_stream enyx_hw_a2c_stream;
typedef struct enyx_hw_c2a_stream_descriptor enyx_hw_c2a_stream_descriptor;
typedef struct enyx_hw_c2a_stream enyx_hw_c2a_stream;

/** Which bits of a core's register space one access means. */
typedef struct enyx_hw_register_description {
    uint64_t byte_offset; /**< from the start of the core's register space */
    uint32_t bit_offset;
    uint32_t bit_size;
} enyx_hw_register_description;

/** Receives one card-to-host message; `data` lies in the DMA buffer and is valid only during the call. */
typedef void (*enyx_hw_a2c_handler)(const uint8_t* data, uint32_t size, void* opaque);

/* Filters: what an enumeration looks for. Null, or -1, and errno on failure. */
enyx_hw_filter* enyx_hw_filter_create(void);
int enyx_hw_filter_set_index(enyx_hw_filter* filter, uint32_t index);
int enyx_hw_filter_set_name(enyx_hw_filter* filter, const char* name);
void enyx_hw_filter_destroy(enyx_hw_filter* filter);

/* Accelerators, that is cards. Enumerations return the number stored (at most `capacity`), -1 and errno on
 * failure. */
int enyx_hw_enumerate_accelerators(const enyx_hw_filter* filter, enyx_hw_accelerator_descriptor** descriptors,
                                   size_t capacity);
void enyx_hw_free_accelerator_descriptors(enyx_hw_accelerator_descriptor** descriptors, size_t count);
enyx_hw_accelerator* enyx_hw_accelerator_get(const enyx_hw_accelerator_descriptor* descriptor);

/* Register spaces (MMIO). */
int enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
                                        enyx_hw_mmio_descriptor** descriptors, size_t capacity);
void enyx_hw_free_mmio_descriptors(enyx_hw_mmio_descriptor** descriptors, size_t count);
enyx_hw_mmio* enyx_hw_mmio_create(const enyx_hw_mmio_descriptor* descriptor);
void enyx_hw_mmio_destroy(enyx_hw_mmio* mmio);

/* Cores. A core belongs to its tree and dies with it. */
enyx_hw_core_tree* enyx_hw_enumerate_cores(enyx_hw_mmio* mmio);
enyx_hw_core* enyx_hw_core_tree_get_root(enyx_hw_core_tree* tree);
void enyx_hw_destroy_tree(enyx_hw_core_tree* tree);
int enyx_hw_core_reset(enyx_hw_core* core);

/** Number of cores stored, 0 when none has the identifier, -1 and errno on failure. */
int enyx_hw_core_enumerate(enyx_hw_core* root, uint16_t hardware_id, enyx_hw_core** cores, size_t capacity);

/** Exclusive over every process that has the card open. */
void enyx_hw_core_lock(enyx_hw_core* core);
void enyx_hw_core_unlock(enyx_hw_core* core);

int enyx_hw_write(enyx_hw_core* core, const enyx_hw_register_description* description, uint64_t value);
int enyx_hw_read(enyx_hw_core* core, const enyx_hw_register_description* description, uint64_t* value);

/* Card-to-host streams. */
int enyx_hw_accelerator_enumerate_a2c_streams(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
                                              enyx_hw_a2c_stream_descriptor** descriptors, size_t capacity);
void enyx_hw_free_a2c_stream_descriptors(enyx_hw_a2c_stream_descriptor** descriptors, size_t count);
enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(const enyx_hw_a2c_stream_descriptor* descriptor,
                                              const void* options);
int enyx_hw_a2c_stream_get_mtu(enyx_hw_a2c_stream* stream, uint32_t* mtu);

/** Messages handed to the handler by this call (0 or 1), -1 and errno on failure; never waits. */
int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler, void* opaque);
void enyx_hw_a2c_stream_destroy(enyx_hw_a2c_stream* stream);

/* Host-to-card streams. */
int enyx_hw_accelerator_enumerate_c2a_streams(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
                                              enyx_hw_c2a_stream_descriptor** descriptors, size_t capacity);
void enyx_hw_free_c2a_stream_descriptors(enyx_hw_c2a_stream_descriptor** descriptors, size_t count);
enyx_hw_c2a_stream* enyx_hw_c2a_stream_create(const enyx_hw_c2a_stream_descriptor* descriptor,
                                              const void* options);
int enyx_hw_c2a_stream_get_mtu(enyx_hw_c2a_stream* stream, uint32_t* mtu);
int enyx_hw_c2a_stream_send(enyx_hw_c2a_stream* stream, const void* data, uint32_t size);
void enyx_hw_c2a_stream_destroy(enyx_hw_c2a_stream* stream);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_SDK_ENYX_HW_H */
