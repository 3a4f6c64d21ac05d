// The layouts of layouts.c, and those that C++ alone can see.
#include <qal/identity.hpp>

#include "layouts.c"  // NOLINT(bugprone-suspicious-include)

SIZE(QalIdentity, 6192);
