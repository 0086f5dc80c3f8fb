# cmake -DHEADER=<file> -P KxXdrEnums.cmake
#
# Gives every enumeration of an rpcgen header an unsigned int underlying type when the header is
# compiled as C++. A C++ enumeration without one may only hold the values its enumerators' bits
# span (nfsstat3: 0..16383, ftype3: 0..7), so a hostile reply's status or file type, stored by
# the generated C decoder, would be undefined behaviour the moment C++ code reads it. With a fixed
# type every 32-bit value is a value of the enumeration, and one that no table lists reaches the
# error tables as unknown. C sees the same 4-byte enumeration as before.
file(READ "${HEADER}" text)
string(REGEX REPLACE "\nenum ([A-Za-z_0-9]+) {\n" "\nenum \\1 KX_XDR_ENUM_BASE {\n" text "${text}")
set(prologue "#ifndef KX_XDR_ENUM_BASE\n#ifdef __cplusplus\n#define KX_XDR_ENUM_BASE : unsigned int\n#else\n#define KX_XDR_ENUM_BASE\n#endif\n#endif\n")
file(WRITE "${HEADER}" "${prologue}${text}")
