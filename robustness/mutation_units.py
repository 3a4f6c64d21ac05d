"""Which test programs answer for which unit, the quickest first: "area" is tests/area_test,
"area.corpus" the replay of the fuzz corpus.
"""

IO, LIB, INNER = "utils/libsrc/qal_io", "utils/libsrc", "utils/libsrc/internal"

# A header is compiled with the units that include it.
INCLUDED_BY = {
    f"{INNER}/barrier.hpp": [f"{LIB}/qal_barrier.cpp", f"{LIB}/qal_reduce.cpp"],
    f"{INNER}/block_format.hpp": ["app/blocks.cpp", f"{LIB}/qal_zlib.cpp"],
    f"{INNER}/bounded_text.hpp": ["app/directories.cpp", "app/helpers_file.cpp",
                                  f"{IO}/dir_list.cpp", f"{IO}/path_full.cpp"],
    f"{INNER}/chain.hpp": [f"{LIB}/qal_list.cpp", f"{LIB}/qal_plist.cpp"],
    f"{INNER}/merge_sort.hpp": [f"{LIB}/qal_list.cpp", f"{LIB}/qal_plist.cpp"],
    f"{INNER}/password.hpp": [f"{IO}/path_full.cpp", f"{LIB}/qal_sysinfo.cpp"],
    f"{INNER}/retry.hpp": ["app/record.cpp", "app/sweep.cpp", f"{IO}/file_check.cpp",
                           f"{IO}/file_ops.cpp"],
}

CRITICAL_UNITS = {
    "app/blocks.cpp": ["blocks", "blocks_fault", "blocks.corpus"],
    "app/record.cpp": ["record", "sweep", "sweep_fault", "record.corpus"],
    "app/sweep.cpp": ["sweep", "sweep_fault", "sweep.corpus"],
    f"{INNER}/block_format.hpp": ["blocks", "blocks_fault", "blocks.corpus"],
    f"{INNER}/chain.hpp": ["plist", "list", "list.corpus"],
    f"{LIB}/qal_fnmatch.cpp": ["wildcard", "wildcard.corpus", "wildcard_model"],
    f"{LIB}/qal_hash.cpp": ["hash", "containers_fault", "hash.corpus"],
    f"{LIB}/qal_hash_pairs.cpp": ["hash_pairs", "containers_fault", "hash_pairs.corpus"],
    f"{LIB}/qal_list.cpp": ["list", "containers_fault", "list.corpus"],
    f"{LIB}/qal_zlib.cpp": ["blocks", "blocks_fault", "blocks.corpus"],
    f"{IO}/path_convert.cpp": ["path", "path.corpus", "path_model"],
}
CRITICAL = list(CRITICAL_UNITS)

UNITS = CRITICAL_UNITS | {
    "app/directories.cpp": ["directories", "directories_fault"],
    "app/helpers_file.cpp": ["helpers_file", "helpers_fault", "lines.corpus"],
    "app/helpers_number.cpp": ["helpers_number"],
    "app/helpers_text.cpp": ["helpers_text", "helpers_fault"],
    "app/installation.cpp": ["directories", "directories_fault"],
    "app/notify.cpp": ["sweep", "sweep_fault", "sweep.corpus"],
    "cxxutils/libsrc/qal_identity.cpp": ["identity", "scrub.corpus"],
    f"{INNER}/barrier.hpp": ["barrier", "barrier_fault", "reduce", "barrier.corpus"],
    f"{INNER}/bounded_text.hpp": ["directories", "helpers_file", "path", "dir_list"],
    f"{INNER}/merge_sort.hpp": ["plist", "list"],
    f"{INNER}/password.hpp": ["path", "path_fault", "system", "system_fault"],
    f"{INNER}/retry.hpp": ["record", "sweep_fault", "files", "files_fault"],
    f"{LIB}/platform/platform_linux.cpp": ["platform", "platform_fault", "system", "pipe",
                                           "pipe_fault", "sweep_fault"],
    f"{LIB}/platform/platform_posix.cpp": ["system", "system_fault"],
    f"{LIB}/qal_barrier.cpp": ["barrier", "barrier_fault", "barrier.corpus"],
    f"{LIB}/qal_ctype.cpp": ["text", "text.corpus"],
    f"{LIB}/qal_logger.cpp": ["logger", "system_fault", "scrub.corpus"],
    f"{LIB}/qal_mpool.cpp": ["mpool", "containers_fault", "mpool.corpus"],
    f"{LIB}/qal_plist.cpp": ["plist", "containers_fault", "plist.corpus"],
    f"{LIB}/qal_reduce.cpp": ["reduce", "reduce.corpus"],
    f"{LIB}/qal_string.cpp": ["text", "text_work", "text.corpus"],
    f"{LIB}/qal_symbol_font.cpp": ["utf8"],
    f"{LIB}/qal_sysinfo.cpp": ["system", "system_fault", "platform"],
    f"{LIB}/qal_temp_mem.cpp": ["temp_mem", "alloc", "alloc_fault", "temp_mem.corpus"],
    f"{LIB}/qal_thread.cpp": ["thread", "thread_fault", "startup"],
    f"{LIB}/qal_thread_sema.cpp": ["sema_fault", "thread", "sema.corpus"],
    f"{LIB}/qal_thread_sync.cpp": ["thread", "thread_fault"],
    f"{LIB}/qal_time.cpp": ["clock", "clock_fault"],
    f"{LIB}/qal_uid.cpp": ["uid", "containers_fault", "uid.corpus"],
    f"{LIB}/qal_utf8.cpp": ["utf8"],
    f"{LIB}/qal_utils.cpp": ["startup", "startup_fault"],
    f"{IO}/dir_list.cpp": ["dir_list", "dir_list_fault"],
    f"{IO}/dir_remove.cpp": ["files", "files_fault"],
    f"{IO}/file_check.cpp": ["files", "files_fault", "lines.corpus"],
    f"{IO}/file_ops.cpp": ["files", "files_fault", "lines.corpus"],
    f"{IO}/path_full.cpp": ["path", "path_fault", "path.corpus"],
    f"{IO}/path_norm.cpp": ["path", "path_fault", "path.corpus", "path_model"],
    f"{IO}/path_parts.cpp": ["path", "path_fault", "path.corpus"],
    f"{IO}/path_range.cpp": ["path", "path_fault"],
    f"{IO}/pipe.cpp": ["pipe", "pipe_fault"],
}
