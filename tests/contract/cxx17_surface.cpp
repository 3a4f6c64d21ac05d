// The C++ half of the surface, given to pointers of exactly the promised types.
#include <dirent.h>
#include <qal/qal.h>
#include <kalmora/kalmora.hpp>
#include <qal/identity.hpp>

#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

namespace {

template <typename Promised, Promised address>
constexpr int promised = address != nullptr;

using Text = const char *;

int helpers() {
  return promised<int (*)(Text, int, char *, int), expfnam> +
         promised<int (*)(char *, int), our_tempdir> + promised<int (*)(Text), file_getlinecount> +
         promised<int (*)(char *), replace_illegal> + promised<int (*)(Text, Text), readercmp> +
         promised<char *(*)(Text), lower_case> + promised<char *(*)(char *, int), change_rsh> +
         promised<void (*)(FILE_PART_LIST *), sort_master_part_list> +
         promised<void (*)(Text, int *, int *, int *, char *), version_number_from_version_string> +
         promised<void (*)(Text, Text, int *, int *), sub_string_in_string> +
         promised<float (*)(std::int64_t *), erand0> +
         promised<float (*)(float, int, int), kal_flt_tolerance> +
         promised<double (*)(double, int, int), kal_dbl_tolerance> +
         promised<float (*)(float), our_fabsf> + promised<double (*)(double), our_fabsd> +
         promised<int (*)(const void *, const void *), numcompar> +
         promised<int (*)(float, float, float), in_range> +
         promised<void (*)(void *), our_freenamelist> +
         promised<int (*)(Text, dirent ***, int (*)(const dirent *),
                          int (*)(const dirent **, const dirent **)),
                  our_scandir> +
         promised<int (*)(Text, int, int, std::int64_t, std::int64_t, void *, std::int64_t *),
                  remote_fileio>;
}

int blocks() {
  return promised<std::size_t (*)(const void *, std::size_t, std::size_t, std::FILE *),
                  fwrite_zlib> +
         promised<std::size_t (*)(void *, std::size_t, std::size_t, std::FILE *), fread_zlib> +
         promised<void (*)(int *, int), zlib_compression_method> +
         promised<void (*)(std::uint64_t *, std::uint64_t *, int), zlib_io_stats>;
}

int driver() {
  return promised<void (*)(Text), query_env_vars> + promised<Text (*)(), qal_zul_home> +
         promised<Text (*)(), qal_zul_arch> + promised<void (*)(Text), process_directory> +
         promised<std::vector<std::string> (*)(Text, Text), find_files>;
}

// The members in slot order; the class has no other virtual operation.
int identity() {
  return promised<void (QalIdentity::*)(std::int32_t), &QalIdentity::setProduct> +
         promised<void (QalIdentity::*)(std::int32_t), &QalIdentity::setFlavor> +
         promised<void (QalIdentity::*)(std::int32_t), &QalIdentity::setComponent> +
         promised<void (QalIdentity::*)(std::uint16_t, std::uint16_t, std::uint16_t, char),
                  &QalIdentity::setVersion> +
         promised<void (QalIdentity::*)(QalIdentity::ChangeCallback),
                  &QalIdentity::setChangeCallback> +
         promised<Text (QalIdentity::*)(), &QalIdentity::getComponentName> +
         promised<Text (QalIdentity::*)(), &QalIdentity::getVersionString> +
         promised<Text (QalIdentity::*)(bool), &QalIdentity::getBaseProductName> +
         promised<Text (QalIdentity::*)(bool), &QalIdentity::getFlavorName> +
         promised<Text (QalIdentity::*)(bool), &QalIdentity::getProductName> +
         promised<Text (QalIdentity::*)(), &QalIdentity::getIdentityString> +
         promised<float (QalIdentity::*)(), &QalIdentity::getVersionFloat> +
         promised<bool (QalIdentity::*)(int), &QalIdentity::isProduct>;
}

static_assert(sizeof App_resource_directory == 64 && sizeof Old_App_resource_directory == 64);
static_assert(sizeof Zul_home_directory == 1024 && sizeof App_home_directory == 1024);
static_assert(sizeof App_site_preferences_directory == 1024 && sizeof Vemo_home_directory == 1024);
static_assert(sizeof Zul_arch == 80 && sizeof User_home_directory == 1024);
static_assert(sizeof User_resource_directory == 1024 && sizeof TransportPaths == 1024);
static_assert(sizeof LaunchConfigPaths == 1024);
static_assert(std::is_same_v<decltype(QalIdentity::currentIdentity), QalIdentity *>);
static_assert(std::is_constructible_v<QalIdentity, const char *>);
static_assert(!std::is_convertible_v<const char *, QalIdentity>);
static_assert(std::is_same_v<decltype(FILE_PART_LIST::names), char **>);

}  // namespace

int main() {
  std::printf("%d functions found\n", helpers() + blocks() + driver() + identity());
  return QalIdentity::currentIdentity == nullptr && Zul_arch[0] == '\0' ? 0 : 1;
}
