/** @file
 *  Directories from the environment.
 *
 *  The places of the installation, the user's resources and the search paths are taken from the
 *  environment once, into texts for the whole process. C++ only.
 *
 *  query_env_vars() reads these variables. One that is set to nothing counts as set, except
 *  TRANSPORT_DIR and LAUNCH_CONFIG_DIR. TMPDIR is only checked.
 *
 *  | variable          | goes to                           | when it is not set            |
 *  |-------------------|-----------------------------------|-------------------------------|
 *  | ZUL_HOME          | Zul_home_directory                | /usr/local/ZUL                |
 *  | ZUL_USER_HOMEDIR  | User_home_directory               | home in the password database |
 *  | TRANSPORT_DIR     | first entry of TransportPaths     | no such entry                 |
 *  | LAUNCH_CONFIG_DIR | second entry of LaunchConfigPaths | no such entry                 |
 *  | TMPDIR            | -                                 | nothing is checked            |
 *
 *  The other texts are made of these, as each says below. "Converted" means with every backslash
 *  turned into a slash, "expanded" with a leading "~" replaced as by expfnam().
 *
 *  The sizes of the texts are in bytes and count the terminator. When a directory is too long its
 *  text stays empty, because a cut path is another directory; a search path takes an entry whole
 *  or not at all. Only Zul_home_directory and the texts of 64 bytes are cut.
 *
 *  Errors: query_env_vars() reports the root through qal_info() (logger.h), and a TMPDIR that does
 *  not exist or is no directory. When memory for the user's password entry is short the allocator
 *  reports it (alloc.h). Nothing else is reported.
 *
 *  Threads: query_env_vars() and the first qal_zul_home() are called while the process has one
 *  thread. Afterwards every thread may read the texts, and none may write them.
 *
 *  Source: app/directories.cpp, app/installation.cpp. */
#ifndef KALMORA_DIRECTORIES_HPP
#define KALMORA_DIRECTORIES_HPP

/** The user's resource directory below the home: "Library/Application Support/", the product word
 *  and "102". Before query_env_vars() the word is "Kalmora". */
extern char App_resource_directory[64];

/** The same of the previous version, with "101". */
extern char Old_App_resource_directory[64];

/** The installation root: what qal_zul_home() returns, neither converted nor expanded. A root that
 *  begins with a space counts as not set; the text is then "/usr/local/ZUL/". */
extern char Zul_home_directory[1024];

/** The product's own tree: the root, "/", the base product name in lower case and "102", converted
 *  and expanded. The name is that of QalIdentity::currentIdentity, empty when that is null. */
extern char App_home_directory[1024];

/** The site's preferences: the root and "/kalmora102/site_preferences", converted and expanded. */
extern char App_site_preferences_directory[1024];

/** The companion Vemo tree: the root and "/vemo32", converted and expanded. */
extern char Vemo_home_directory[1024];

/** The platform word: what qal_zul_arch() returns. */
extern char Zul_arch[80];

/** The user's home: ZUL_USER_HOMEDIR as it is, else that of the real user id in the password
 *  database, at most 1008 bytes and converted. Empty for a user without an entry. */
extern char User_home_directory[1024];

/** Home and App_resource_directory, joined with "/" and converted. It begins with "/" when the home
 *  is empty, and is empty itself only when the home or the joined path did not fit. */
extern char User_resource_directory[1024];

/** Transport directories, separated by ":" and converted: TRANSPORT_DIR, then in the Vemo tree
 *  "/machines/", the platform word and "/ZUL/transports". */
extern char TransportPaths[1024];

/** Launch configuration directories, separated by ":": "/launch_configs" in the Vemo tree,
 *  LAUNCH_CONFIG_DIR, converted, and "/launch_configs" in the user's resource directory. Readers
 *  skip empty entries: the list begins with one when there is no Vemo tree. A user's home that did
 *  not fit adds no entry. */
extern char LaunchConfigPaths[1024];

/** Fills the texts, once per process: later calls change nothing.
 *
 *  It never fails as a whole: a text that cannot be found out is left empty.
 *
 *  @param product  the lower-case product word in the names of the resource directories; null
 *                  counts as empty. Borrowed.
 *  @note  Ends the process when QalIdentity::getBaseProductName() of the current identity does. */
void query_env_vars(const char *product);

/** Returns the installation root: ZUL_HOME without one separator at its end and the line ends
 *  behind that, or "/usr/local/ZUL" when it is not set. A lone separator stays.
 *
 *  @return a text that stays the same for the life of the process, of at most 1023 bytes: a longer
 *          one is cut. Never null, not to be freed. A later change of ZUL_HOME is not seen. */
const char *qal_zul_home();

/** Returns the platform word.
 *
 *  @return the constant text "apple", whatever the platform is. */
const char *qal_zul_arch();

#endif
