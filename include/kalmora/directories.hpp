/** @file
 *  Directories from the environment.
 *
 *  The places of the installation, the user's resources and the search paths are taken from the
 *  environment once, into texts for the whole process. C++ only.
 *
 *  The variables are ZUL_HOME, ZUL_USER_HOMEDIR, TRANSPORT_DIR, LAUNCH_CONFIG_DIR and TMPDIR. One
 *  that is set to nothing counts as set, but adds nothing to a search path.
 *
 *  The sizes of the texts are in bytes and count the terminator. When a directory is too long its
 *  text stays empty, because a cut path is another directory; a search path takes an entry whole
 *  or not at all. Only Zul_home_directory and the texts of 64 bytes are cut.
 *
 *  Threads: query_env_vars() and the first qal_zul_home() are called while the process has one
 *  thread. Afterwards every thread may read the texts, and none may write them.
 *
 *  Source: app/directories.cpp, app/installation.cpp. */
#ifndef KALMORA_DIRECTORIES_HPP
#define KALMORA_DIRECTORIES_HPP

extern char App_resource_directory[64];     /**< the user's resource directory below the home */
extern char Old_App_resource_directory[64]; /**< the same of the previous version */

extern char Zul_home_directory[1024];             /**< the installation root */
extern char App_home_directory[1024];             /**< the product's own tree */
extern char App_site_preferences_directory[1024]; /**< the site's preferences */
extern char Vemo_home_directory[1024];            /**< the companion Vemo tree */
extern char Zul_arch[80];                         /**< the platform word */
extern char User_home_directory[1024];            /**< the user's home */

/** Home and App_resource_directory, joined. It begins with "/" when the home is empty, and is empty
 *  itself only when the home or the joined path did not fit. */
extern char User_resource_directory[1024];

extern char TransportPaths[1024]; /**< transport directories, separated by ":" */

/** Launch configuration directories, separated by ":". Readers skip empty entries: the list begins
 *  with one when there is no Vemo tree. A user's home that did not fit adds no entry. */
extern char LaunchConfigPaths[1024];

/** Fills the texts, once per process: later calls change nothing.
 *
 *  It never fails as a whole: a text that cannot be found out is left empty. It reports the root,
 *  and a TMPDIR that is no directory, through qal_info(). The product's tree has the base product
 *  name of QalIdentity::currentIdentity, or no name in front of its version when that is null.
 *
 *  @param product  the lower-case product word in the names of the resource directories; null
 *                  counts as empty. */
void query_env_vars(const char *product);

/** The installation root: ZUL_HOME without one separator at its end, or "/usr/local/ZUL" when it
 *  is not set.
 *
 *  @return a text that stays the same for the life of the process, of at most 1023 bytes; never
 *          null. A later change of ZUL_HOME is not seen. */
const char *qal_zul_home();

/** The platform word: "apple", whatever the platform is. */
const char *qal_zul_arch();

#endif
