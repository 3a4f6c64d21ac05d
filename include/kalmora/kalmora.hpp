/** @file
 *  The program-level half of the family's toolkit in one include: what lives under `app/` apart
 *  from `main`. C++ only. */
#ifndef KALMORA_KALMORA_HPP
#define KALMORA_KALMORA_HPP

#include <kalmora/blocks.hpp>
#include <kalmora/directories.hpp>
#include <kalmora/helpers.hpp>
#include <kalmora/sweep.hpp>

#endif
