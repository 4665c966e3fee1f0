// The public entry points of the checker.
#include "aostore/check.h"
#include "check/container_checker.h"

namespace ao {

const char* CheckProblemKindName(CheckProblemKind kind) {
  switch (kind) {
    case CheckProblemKind::kHeader:
      return "header";
    case CheckProblemKind::kTable:
      return "table";
    case CheckProblemKind::kRecord:
      return "record";
    case CheckProblemKind::kBlock:
      return "block";
    case CheckProblemKind::kLink:
      return "link";
    case CheckProblemKind::kCycle:
      return "cycle";
    case CheckProblemKind::kPastEnd:
      return "past-end";
    case CheckProblemKind::kShared:
      return "shared";
    case CheckProblemKind::kOverlap:
      return "overlap";
    case CheckProblemKind::kLength:
      return "length";
    case CheckProblemKind::kFolder:
      return "folder";
  }
  return "unknown";
}

CheckReport CheckContainer(const char* path, CheckScope scope, const CheckProgress& progress) {
  return check::ContainerChecker(path, scope, progress).Run();
}

}  // namespace ao
