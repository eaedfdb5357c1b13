"""Help with the options under headings, as there are too many for one list."""

from typing import Any

import click


class SectionOption(click.Option):
    """An option with the heading under which the help shows it.

    Parameters
    ----------
    section : str
        Heading; options of one section stand together.
    """

    def __init__(self, *arguments: Any, section: str = "Other", **options: Any) -> None:
        super().__init__(*arguments, **options)
        self.section = section


class SectionGroup(click.Group):
    """A group of commands whose own options are shown in sections, in the order of their declaration."""

    def format_options(self, ctx: click.Context, formatter: click.HelpFormatter) -> None:
        sections: dict[str, list[tuple[str, str]]] = {}
        for parameter in self.get_params(ctx):
            record = parameter.get_help_record(ctx)
            if record:
                heading = parameter.section if isinstance(parameter, SectionOption) else "Other"
                sections.setdefault(heading, []).append(record)
        for heading, records in sections.items():
            with formatter.section(heading):
                formatter.write_dl(records)
        self.format_commands(ctx, formatter)

    def format_epilog(self, ctx: click.Context, formatter: click.HelpFormatter) -> None:
        if self.epilog:  # examples: lines of their own, not paragraphs
            formatter.write("\n" + self.epilog)
