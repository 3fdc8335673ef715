/* The driver's seven entry points, as the device manager calls them. Plain C.
 *
 * Every scalar is 32 bits wide. PRN_Init and PRN_Deinit are called alone; the others may be called
 * by many threads at once, between them. A process calls PRN_Deinit before it ends or unloads the
 * library. A handle names one open session: 1, 2, 3, ... in order of
 * opening, never reused while the service runs. */
#ifndef VALMERE_PRN_H
#define VALMERE_PRN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Builds the service, in place of one that runs already. Always 1, the device context. */
uint32_t PRN_Init(uint32_t registry_context);
/* Closes every session, ends the service and waits 3000 ms; appends the bytes 00 01 02 03 to
 * "\DriverUnloadSuccessful" if nothing of it is left alive. Always 1. */
uint32_t PRN_Deinit(uint32_t device_context);
/* A new session; its handle. 0 when no service runs or memory is short. */
uint32_t PRN_Open(uint32_t device_context, uint32_t access, uint32_t share_mode);
/* 1 if the handle was open, else 0. A read that waits on the handle returns. */
uint32_t PRN_Close(uint32_t open_handle);
/* Waits for the first byte, copies up to `count` that are there, and leaves the rest of the buffer
 * as it was. Always `count`: the end of a message is found from its frame. */
uint32_t PRN_Read(uint32_t open_handle, void* buffer, uint32_t count);
/* The number of bytes taken; -1 when no session has the handle, when there is no buffer, or when
 * memory is short, which at the first write ends the session. */
int32_t PRN_Write(uint32_t open_handle, const void* buffer, uint32_t count);
/* No control codes exist. Always 0. */
uint32_t PRN_IOControl(uint32_t open_handle, uint32_t code, void* in, uint32_t in_size, void* out,
                       uint32_t out_size, uint32_t* out_count);

#ifdef __cplusplus
}
#endif

#endif /* VALMERE_PRN_H */
