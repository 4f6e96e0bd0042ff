#pragma once

namespace klangor {

class ProjectCommands
{};

} // namespace klangor
