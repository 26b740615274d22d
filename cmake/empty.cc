// Placeholder so that a subsystem library exists before its first source lands.
namespace {
[[maybe_unused]] constexpr int kEmptySubsystem = 0;
}
