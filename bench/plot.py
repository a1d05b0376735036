"""The plot of time against the number of rules."""

WIDTH, HEIGHT, LEFT, BOTTOM = 640, 360, 70, 50
SERIES = (("program_us", "one request to add a rule", "#1f5fa8"),
          ("floor_us", "rendering and parsing the list alone", "#b8581f"))


def write_plot(path, points):
    most_rules = max(point["rules"] for point in points)
    most_time = max(point[key] for point in points for key, _, _ in SERIES) * 1.1

    def place(rules, microseconds):
        return (LEFT + rules / most_rules * (WIDTH - LEFT - 30),
                HEIGHT - BOTTOM - microseconds / most_time * (HEIGHT - BOTTOM - 30))

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
             'font-family="sans-serif" font-size="12">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>']
    for step in range(5):
        x, _ = place(most_rules * step / 4, 0)
        _, y = place(0, most_time * step / 4)
        parts += [f'<line x1="{LEFT}" y1="{y:.0f}" x2="{WIDTH - 30}" y2="{y:.0f}" stroke="#ddd"/>',
                  f'<text x="{LEFT - 8}" y="{y + 4:.0f}" text-anchor="end">'
                  f'{most_time * step / 4000:.0f} ms</text>',
                  f'<text x="{x:.0f}" y="{HEIGHT - BOTTOM + 20}" text-anchor="middle">'
                  f'{most_rules * step // 4:,}</text>']
    for index, (key, label, colour) in enumerate(SERIES):
        places = [place(point["rules"], point[key]) for point in points]
        line = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in places]
        parts.append(f'<text x="{LEFT + 20}" y="{30 + 18 * index}" fill="{colour}">{label}</text>')
    parts.append(f'<text x="{WIDTH / 2}" y="{HEIGHT - 10}" text-anchor="middle">'
                 'rules on the recorder</text></svg>')
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(parts) + "\n")
