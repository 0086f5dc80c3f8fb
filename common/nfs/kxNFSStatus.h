// Status codes of the NFS client (base/kxStatus.h explains the form).
//
// 0xE00302.. file-system statuses, 0xE00303.. RPC transport statuses, 0xE00304.. lock-manager
// statuses; the translation tables (kxNFSErrorMap.h) produce them from the protocols' own
// statuses, and the browse layer returns them unchanged. A few general codes (0xE0FF....) are
// produced by the browse layer itself.
#pragma once

#include "base/kxStatus.h"

// File system (NFS and MOUNT statuses).
constexpr long KX_E_NFS_NO_NAME = kxStatus(0xE0030201);         // object path has no name part
constexpr long KX_E_NFS_NO_EXPORT = kxStatus(0xE0030203);       // no export serves the request
constexpr long KX_E_NFS_FAILED = kxStatus(0xE0030204);          // no finer cause (I/O error, ...)
constexpr long KX_E_NFS_PERM = kxStatus(0xE0030205);            // operation not permitted
constexpr long KX_E_NFS_ACCESS = kxStatus(0xE0030206);          // access denied
constexpr long KX_E_NFS_NOENT = kxStatus(0xE0030207);           // no such file or directory
constexpr long KX_E_NFS_NAME_TOO_LONG = kxStatus(0xE0030208);
constexpr long KX_E_NFS_NOT_EMPTY = kxStatus(0xE0030209);       // directory not empty
constexpr long KX_E_NFS_WRONG_TYPE = kxStatus(0xE003020A);      // not a directory, or is one
constexpr long KX_E_NFS_STALE = kxStatus(0xE003020B);           // stale file handle
constexpr long KX_E_NFS_BAD_TYPE = kxStatus(0xE003020C);        // type not supported by server
constexpr long KX_E_NFS_SERVER_FAULT = kxStatus(0xE003020D);    // also RPC decode/system errors
constexpr long KX_E_NFS_READ_ONLY = kxStatus(0xE003020E);       // read-only file system
constexpr long KX_E_NFS_BAD_HANDLE = kxStatus(0xE003020F);
constexpr long KX_E_NFS_EXISTS = kxStatus(0xE0030210);          // object already exists
constexpr long KX_E_NFS_NO_STATUS = kxStatus(0xE0030211);       // failed, nothing to translate

// RPC transport.
constexpr long KX_E_RPC_FAILED = kxStatus(0xE0030300);          // no finer cause; no client made
constexpr long KX_E_RPC_AUTH = kxStatus(0xE0030301);            // auth error; no credentials made
constexpr long KX_E_RPC_CANT_ENCODE = kxStatus(0xE0030302);
constexpr long KX_E_RPC_CANT_DECODE = kxStatus(0xE0030303);
constexpr long KX_E_RPC_CANT_SEND = kxStatus(0xE0030304);
constexpr long KX_E_RPC_TIMED_OUT = kxStatus(0xE0030306);
constexpr long KX_E_RPC_VERSION_MISMATCH = kxStatus(0xE0030307);  // RPC or program version
constexpr long KX_E_RPC_PROG_UNAVAILABLE = kxStatus(0xE0030308);  // or not registered
constexpr long KX_E_RPC_PROC_UNAVAILABLE = kxStatus(0xE0030309);
constexpr long KX_E_RPC_UNKNOWN_HOST = kxStatus(0xE003030A);
constexpr long KX_E_RPC_UNKNOWN_PROTOCOL = kxStatus(0xE003030B);
constexpr long KX_E_RPC_PORTMAPPER = kxStatus(0xE003030C);       // port-mapper failure
constexpr long KX_E_RPC_SYSTEM = kxStatus(0xE003030D);           // argument decoding or system

// Lock manager.
constexpr long KX_E_NLM_FAILED = kxStatus(0xE0030400);
constexpr long KX_E_NLM_DENIED = kxStatus(0xE0030401);
constexpr long KX_E_NLM_NO_LOCKS = kxStatus(0xE0030402);        // server out of locks
constexpr long KX_E_NLM_BLOCKED = kxStatus(0xE0030403);
constexpr long KX_E_NLM_GRACE_PERIOD = kxStatus(0xE0030404);

// General codes the browse layer produces.
constexpr long KX_E_NFS_NO_PORTMAPPER = kxStatus(0xE0FF012F);  // server's port mapper silent
constexpr long KX_E_NFS_CANCELLED = kxStatus(0xE0FFFF03);
