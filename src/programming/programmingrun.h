#pragma once

namespace klangor {

class ProgrammingRun
{};

} // namespace klangor
