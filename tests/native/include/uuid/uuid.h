// Source: uuid(3) and the Mac's sys/_types/_uuid_t.h.
#pragma once

typedef unsigned char uuid_t[16];
typedef char uuid_string_t[37];

#ifdef __cplusplus
extern "C"
#endif
    void
    uuid_unparse_upper(const uuid_t uuid, uuid_string_t text);
